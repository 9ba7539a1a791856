#include "cli/transfer/piped.h"

#include <fmt/format.h>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/units.h"
#include "cli/system/path.h"

namespace quorl::cli {
namespace {

Failure NoInput(Exit code, const std::string& what, const std::string& why, const std::string& next) {
  return {code, what, why, {"Nothing has been sent." + (next.empty() ? "" : " " + next)}};
}

}  // namespace

Piped::Piped(const std::string& name, Reporter& reporter) : place("quorl-"), name(name) {
  const InputAsFile::Kind kind = InputAsFile::Look();
  if (kind == InputAsFile::Kind::Terminal) {
    throw NoInput(Exit::Usage, "standard input is a terminal", "there is nothing in it to send",
                  "Say what: quorl send - < FILE, or PROGRAM | quorl send -");
  }
  const std::string directory = Escape(PathFrom(place.Path()).parent_path().string());
  if (place.Why()) {
    throw NoInput(Exit::LocalFiles, fmt::format("nothing can be written to {}", directory), place.Why().text,
                  "Another TMPDIR may help.");
  }
  const bool isCopied = kind == InputAsFile::Kind::Stream;
  if (isCopied) {
    const uint64_t free = Directory::Open(place.Path()).FreeBytes();
    reporter.Say(
        Fact("input").Add("directory", PathFrom(place.Path()).parent_path().string()).Add("bytes_free", free),
        fmt::format("Input      copied to {} first, as it has no length yet ({} free)", directory, FormatBytes(free)));
  }
  input.emplace(Path());
  const SystemError& why = input->Why();
  if (why.kind == SystemError::Kind::NoRoom) {
    throw NoInput(Exit::NoRoom, fmt::format("standard input does not fit into {}", directory),
                  fmt::format("it is full after {}", FormatBytes(input->Copied())),
                  "With TMPDIR another directory is used; a file needs no copy.");
  }
  if (why) throw NoInput(Exit::LocalFiles, "standard input cannot be sent", why.text, "");
}

std::string Piped::Path() const {
  return (PathFrom(place.Path()) / PathFrom(name)).string();
}

}  // namespace quorl::cli
