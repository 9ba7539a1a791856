// Arithmetic in GF(2^8), the field of the polynomial x^8 + x^4 + x^3 + x^2 + 1.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorl {

/// Where the machine has libisal its vector instructions do this, else tables; the result is the same.
///
/// out[r] = sum over c of matrix[r * columns + c] * in[c], each of `length` bytes, for every r below `rows`. `rows` and
/// `columns` are 1 to 128.
void FieldProduct(size_t length, size_t columns, size_t rows, const uint8_t* matrix, const uint8_t* const* in,
                  uint8_t* const* out);

/// The same, by tables alone.
void FieldProductByTables(size_t length, size_t columns, size_t rows, const uint8_t* matrix, const uint8_t* const* in,
                          uint8_t* const* out);

/// The discrete logarithm of a number other than 0, and the number with that logarithm, which is taken modulo 255.
int FieldLog(uint8_t number);
uint8_t FieldExp(int logarithm);

}  // namespace quorl
