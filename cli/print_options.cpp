#include <cstdio>

#include "cli/option_table.h"

int main() {
  return std::puts(quorl::cli::OptionTableAsJson().c_str()) < 0 ? 1 : 0;
}
