#include <algorithm>
#include <array>

#include "coded/code/field_product.h"

namespace quorl {

namespace {

struct Tables {
  std::array<uint8_t, 255> exp{};
  std::array<uint8_t, 256> log{};
};

constexpr Tables MakeTables() {
  Tables tables;
  unsigned power = 1;
  for (unsigned i = 0; i < 255; ++i) {
    tables.exp[i] = static_cast<uint8_t>(power);
    tables.log[power] = static_cast<uint8_t>(i);
    power <<= 1;
    if (power > 255) power ^= 0x11D;
  }
  return tables;
}

constexpr Tables TABLES = MakeTables();

void AddProduct(size_t length, uint8_t factor, const uint8_t* in, uint8_t* out) {
  if (factor == 0) return;
  std::array<uint8_t, 256> products{};
  for (unsigned i = 1; i < 256; ++i) products[i] = FieldExp(FieldLog(factor) + FieldLog(static_cast<uint8_t>(i)));
  for (size_t i = 0; i < length; ++i) out[i] ^= products[in[i]];
}

}  // namespace

int FieldLog(uint8_t number) {
  return TABLES.log[number];
}

uint8_t FieldExp(int logarithm) {
  return TABLES.exp[static_cast<size_t>((logarithm % 255 + 255) % 255)];
}

void FieldProductByTables(size_t length, size_t columns, size_t rows, const uint8_t* matrix, const uint8_t* const* in,
                          uint8_t* const* out) {
  for (size_t row = 0; row < rows; ++row) {
    std::fill_n(out[row], length, uint8_t{0});
    for (size_t column = 0; column < columns; ++column)
      AddProduct(length, matrix[row * columns + column], in[column], out[row]);
  }
}

}  // namespace quorl
