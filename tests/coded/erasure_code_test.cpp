// The code: any e repair symbols replace any e source symbols, by vector instructions and by tables alike.
#include "coded/code/erasure_code.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "coded/code/field_product.h"

namespace quorl {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Noise(std::mt19937& random, size_t size) {
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

TEST(ErasureCode, AnyRepairSymbolsReplaceAnySourceSymbols) {
  constexpr size_t SIZE = 48;
  std::mt19937 random(1);
  for (const size_t count : {1u, 2u, 7u, 64u, 127u, 128u}) {
    for (const size_t losses : {size_t{1}, count / 3 + 1, count}) {
      const Bytes sent = Noise(random, count * SIZE);
      Bytes lacking(count), indices(MOST_REPAIR_SYMBOLS);
      std::iota(lacking.begin(), lacking.end(), uint8_t{0});
      std::iota(indices.begin(), indices.end(), uint8_t{MOST_SOURCE_SYMBOLS});
      std::shuffle(lacking.begin(), lacking.end(), random);
      std::shuffle(indices.begin(), indices.end(), random);
      lacking.resize(losses);
      Bytes held = sent;
      for (const uint8_t index : lacking) std::fill_n(held.begin() + index * SIZE, SIZE, uint8_t{0xEE});
      std::vector<Bytes> repairs(losses, Bytes(SIZE));
      std::vector<Symbol> repair;
      std::vector<uint8_t*> into;
      for (size_t i = 0; i < losses; ++i) {
        repair.push_back({indices[i], repairs[i].data()});
        into.push_back(repairs[i].data());
      }
      EncodeSymbols(sent, SIZE, std::span(indices).first(losses), into);
      RecoverSymbols(held, SIZE, lacking, repair);
      EXPECT_EQ(held, sent) << count << " symbols, " << losses << " lost";
    }
  }
}

// Peers with and without the vector library must make the same bytes.
TEST(FieldProduct, IsTheSameByTables) {
  std::mt19937 random(2);
  for (const size_t length : {1u, 31u, 1456u}) {
    for (const auto& [columns, rows] : {std::pair<size_t, size_t>{1, 1}, {128, 5}, {3, 128}}) {
      const Bytes matrix = Noise(random, columns * rows);
      std::vector<Bytes> in;
      std::vector<const uint8_t*> from;
      for (size_t i = 0; i < columns; ++i) in.push_back(Noise(random, length));
      for (const Bytes& bytes : in) from.push_back(bytes.data());
      std::vector<Bytes> fast(rows, Bytes(length)), plain = fast;
      std::vector<uint8_t*> toFast, toPlain;
      for (size_t i = 0; i < rows; ++i) toFast.push_back(fast[i].data()), toPlain.push_back(plain[i].data());
      FieldProduct(length, columns, rows, matrix.data(), from.data(), toFast.data());
      FieldProductByTables(length, columns, rows, matrix.data(), from.data(), toPlain.data());
      EXPECT_EQ(fast, plain) << length << " bytes, " << columns << " columns";
    }
  }
  // 2 * 0x80 = 0x11D without its highest bit.
  const uint8_t two = 2, high = 0x80;
  const uint8_t* in = &high;
  uint8_t product = 0;
  uint8_t* out = &product;
  FieldProduct(1, 1, 1, &two, &in, &out);
  EXPECT_EQ(product, 0x1D);
}

}  // namespace
}  // namespace quorl
