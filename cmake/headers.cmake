# A build in which several files are one (the presets demo and asan) knows each name once; and a type of one file that
# stands in a type of its header is no mistake there.
if(CMAKE_UNITY_BUILD)
  add_compile_options(-Wno-subobject-linkage)
endif()

# Headers that nearly every file reads, parsed once for many targets: a build from nothing takes half as long. A file
# still names each header that it uses; the presets package and tsan, which do without, hold it to that.
set(QUORL_COMMON_HEADERS <algorithm> <array> <chrono> <cstdint> <deque> <functional> <map> <memory> <mutex> <optional>
                         <span> <string> <string_view> <unordered_map> <vector>)

# The first target of a group makes the precompiled header, the others take it; they have to be compiled alike.
# Further arguments: headers for this group alone.
function(quorl_precompile TARGET GROUP)
  get_property(MAKER GLOBAL PROPERTY QUORL_HEADERS_OF_${GROUP})
  if(MAKER)
    target_precompile_headers(${TARGET} REUSE_FROM ${MAKER})
  else()
    target_precompile_headers(${TARGET} PRIVATE ${QUORL_COMMON_HEADERS} ${ARGN})
    set_property(GLOBAL PROPERTY QUORL_HEADERS_OF_${GROUP} ${TARGET})
  endif()
  # Out of a precompiled header gcc 12 no longer knows its own std::string as the system's, and warns of what it does.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT CMAKE_DISABLE_PRECOMPILE_HEADERS)
    target_compile_options(${TARGET} PRIVATE -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow
                                             -Wno-stringop-overread)
  endif()
endfunction()
