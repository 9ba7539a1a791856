#include "coded/code/erasure_code.h"

#include <cassert>

#include "coded/code/field_product.h"

namespace quorl {

namespace {

using Bytes = std::vector<uint8_t>;

uint8_t Coefficient(uint8_t repair, uint8_t source) {
  return FieldExp(-FieldLog(repair ^ source));
}

/// The inverse of the part of the matrix with these rows and columns. Of a Cauchy matrix it is known: in place (i, j)
/// stands the product over all k of (x_j + y_k) (x_k + y_i), divided by (x_j + y_i), by the product of x_j + x_k over
/// the other k, and by that of y_i + y_k over the other k.
Bytes Inverse(std::span<const Symbol> rows, std::span<const uint8_t> columns) {
  const size_t count = columns.size();
  std::vector<int> ofRow(count), ofColumn(count);
  for (size_t i = 0; i < count; ++i) {
    for (size_t k = 0; k < count; ++k) {
      ofRow[i] += FieldLog(rows[i].index ^ columns[k]);
      ofColumn[i] += FieldLog(rows[k].index ^ columns[i]);
      if (k == i) continue;
      ofRow[i] -= FieldLog(rows[i].index ^ rows[k].index);
      ofColumn[i] -= FieldLog(columns[i] ^ columns[k]);
    }
  }
  Bytes inverse(count * count);
  for (size_t i = 0; i < count; ++i)
    for (size_t j = 0; j < count; ++j)
      inverse[i * count + j] = FieldExp(ofRow[j] + ofColumn[i] - FieldLog(rows[j].index ^ columns[i]));
  return inverse;
}

}  // namespace

void EncodeSymbols(std::span<const uint8_t> group, size_t symbolSize, std::span<const uint8_t> indices,
                   std::span<uint8_t* const> into) {
  const size_t count = group.size() / symbolSize;
  assert(count >= 1 && count <= MOST_SOURCE_SYMBOLS && indices.size() == into.size());
  Bytes coefficients;
  for (const uint8_t index : indices)
    for (size_t i = 0; i < count; ++i) coefficients.push_back(Coefficient(index, static_cast<uint8_t>(i)));
  std::vector<const uint8_t*> source;
  for (size_t i = 0; i < count; ++i) source.push_back(group.data() + i * symbolSize);
  FieldProduct(symbolSize, count, into.size(), coefficients.data(), source.data(), into.data());
}

// What is known is subtracted from the repair symbols; what then remains of them is solved for what is lacking.
void RecoverSymbols(std::span<uint8_t> group, size_t symbolSize, std::span<const uint8_t> lacking,
                    std::span<const Symbol> repair) {
  const size_t count = group.size() / symbolSize;
  assert(lacking.size() == repair.size() && lacking.size() <= count);
  if (lacking.empty()) return;
  std::vector<bool> lacks(count);
  for (const uint8_t index : lacking) lacks[index] = true;

  std::vector<const uint8_t*> known;
  std::vector<uint8_t> columns;
  for (size_t i = 0; i < count; ++i) {
    if (lacks[i]) continue;
    known.push_back(group.data() + i * symbolSize);
    columns.push_back(static_cast<uint8_t>(i));
  }
  Bytes remains(lacking.size() * symbolSize);
  Bytes coefficients;
  std::vector<uint8_t*> remaining;
  for (size_t row = 0; row < repair.size(); ++row) {
    for (const uint8_t column : columns) coefficients.push_back(Coefficient(repair[row].index, column));
    remaining.push_back(remains.data() + row * symbolSize);
  }
  if (!known.empty())
    FieldProduct(symbolSize, known.size(), repair.size(), coefficients.data(), known.data(), remaining.data());
  for (size_t row = 0; row < repair.size(); ++row)
    for (size_t i = 0; i < symbolSize; ++i) remaining[row][i] ^= repair[row].bytes[i];
  const Bytes inverse = Inverse(repair, lacking);
  std::vector<uint8_t*> recovered;
  for (const uint8_t index : lacking) recovered.push_back(group.data() + index * symbolSize);
  FieldProduct(symbolSize, remaining.size(), recovered.size(), inverse.data(), remaining.data(), recovered.data());
}

}  // namespace quorl
