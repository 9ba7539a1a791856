#include <cstdio>

#include "cli/options/help.h"

int main() {
  return std::puts(quorl::cli::OptionTableAsJson().c_str()) < 0 ? 1 : 0;
}
