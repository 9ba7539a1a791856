#include "coded/code/field_product.h"

#ifdef QUORL_HAS_ISAL
#include <isa-l/erasure_code.h>

#include <vector>
#endif

namespace quorl {

#ifdef QUORL_HAS_ISAL

// The library takes what it reads without const, and 32 bytes of tables for each number of the matrix.
void FieldProduct(size_t length, size_t columns, size_t rows, const uint8_t* matrix, const uint8_t* const* in,
                  uint8_t* const* out) {
  constexpr size_t TABLE = 32;
  const auto k = static_cast<int>(columns);
  const auto r = static_cast<int>(rows);
  std::vector<uint8_t> tables(TABLE * columns * rows);
  ec_init_tables(k, r, const_cast<uint8_t*>(matrix), tables.data());
  ec_encode_data(static_cast<int>(length), k, r, tables.data(), const_cast<uint8_t**>(in), const_cast<uint8_t**>(out));
}

#else

void FieldProduct(size_t length, size_t columns, size_t rows, const uint8_t* matrix, const uint8_t* const* in,
                  uint8_t* const* out) {
  FieldProductByTables(length, columns, rows, matrix, in, out);
}

#endif

}  // namespace quorl
