#include "platform/win32/posted_texts.h"

namespace quorl {

const char* PostedTexts::Keep(const std::string& text) {
  ++given;
  if (!runs.empty() && runs.back().text == text) {
    runs.back().last = given;
  } else {
    runs.push_back({text, given});
  }
  while (runs.front().last + kept < given) runs.pop_front();
  return runs.back().text.c_str();
}

}  // namespace quorl
