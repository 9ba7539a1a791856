// What `quorl send` and `quorl receive` say to each other beside the transfer itself: the form is told in
// docs/protocol.md. What comes is from anybody in the network; what is not as it should be is not taken.
#pragma once

#include <quorl/host.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "cli/manifest/digest.h"

namespace quorl::cli {

/// Bits of SetCapabilities.
enum Capability : uint32_t {
  TELLS_VERDICT = 1,    ///< Says what became of what it received.
  TAKES_CATALOGUE = 2,  ///< Takes the catalogue first and the manifest last.
  HAS_SOMETHING = 4,    ///< Has something where the files would go.
  TAKES_LINKS = 8,      ///< Takes a manifest with links and permissions.
  TELLS_INTAKE = 16,    ///< Of a receiver: says what it loses of a stream that runs.
  HEARS_INTAKE = 32,    ///< Of a sender: wants to know.
  TAKES_XXH3 = 64,      ///< Takes a manifest with digests of that kind.
};

using Bytes = std::vector<uint8_t>;

// ---- words: the sender's, to all ----

/// The transfer that is announced next.
struct About {
  enum class Purpose : uint8_t { Contents = 1, Catalogue = 2 };
  Purpose purpose = Purpose::Contents;
  uint8_t round = 0;  ///< Of a catalogue.
  uint32_t files = 0;
  uint64_t bytes = 0;
  bool manifestLast = false;
  std::vector<uint32_t> onlyFor;  ///< Network byte order; empty: for all.
};

/// Digests of files whose blocks are all out.
struct RunningDigests {
  struct One {
    uint32_t file = 0;  ///< Number in the transfer.
    Digest digest{};
  };
  static constexpr size_t MOST = (QUORL_TEXT_SIZE - 1) / (4 + sizeof(Digest));
  std::vector<One> digests;
};

/// A file that changed, or could not be read, while it was sent.
struct Changed {
  std::string name;
};

/// The sender takes nobody's requests any more.
struct Over {};

using Word = std::variant<About, RunningDigests, Changed, Over>;
Bytes FormatWord(const Word& word);
std::optional<Word> ParseWord(std::span<const uint8_t> text);

// ---- letters: a receiver's, to its sender ----

/// What a receiver has of the files of a catalogue.
struct Have {
  enum class Kind : uint8_t {
    Whole = 1,   ///< `count` files from `file` on.
    Asks = 2,    ///< Has something of these `count` files, and wants their digests.
    Blocks = 3,  ///< `count` blocks of `file` from `first` on.
  };
  struct Run {
    Kind kind = Kind::Whole;
    uint32_t file = 0;
    uint32_t first = 0;
    uint32_t count = 0;
    friend bool operator==(const Run&, const Run&) = default;
  };
  static constexpr size_t MOST = (QUORL_TEXT_SIZE - 2) / 13;
  uint8_t round = 0;
  std::vector<Run> runs;
};

/// That was all that it has.
struct HaveAll {
  uint8_t round = 0;
};

struct StillAtWork {
  uint8_t round = 0;
};

/// What became of it.
struct FinalVerdict {
  uint32_t status = 0;  ///< 0: everything is in its place.
  uint32_t files = 0;   ///< That are.
  std::string text;     ///< For people.
};

/// What has become of the stream in the last moments.
struct Intake {
  uint32_t came = 0;        ///< Blocks,
  uint32_t lost = 0;        ///< those that were jumped over,
  uint32_t overflowed = 0;  ///< and datagrams that the machine itself had no room for.
  uint16_t memory = 0;      ///< Thousandths of its memory for fragments that are in use.
};

using Letter = std::variant<Have, HaveAll, StillAtWork, FinalVerdict, Intake>;
Bytes FormatLetter(const Letter& letter);
std::optional<Letter> ParseLetter(std::span<const uint8_t> text);

// ---- through the library ----

bool Say(const Word& word);
bool Say(const Letter& letter);

struct HeardLetter {
  uint32_t address = 0;
  Letter letter;
};
/// The next one that can be understood.
std::optional<HeardLetter> NextLetter();
std::optional<Word> NextWord();

}  // namespace quorl::cli
