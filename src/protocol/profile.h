#pragma once

namespace quorl {

/// Which rules a role follows. Both speak the same datagrams and work together.
enum class Profile {
  Classic,  ///< The system's own rules to the letter.
  Robust,   ///< Lost datagrams are repeated where one side can cure it, and waits end when what they wait for has come.
};

}  // namespace quorl
