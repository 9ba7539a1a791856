#include "cli/talk/messages.h"

#include <algorithm>
#include <concepts>

namespace quorl::cli {
namespace {

constexpr size_t MOST_MEANT = QUORL_RECEIVERS;

enum WordKind : uint8_t { ABOUT = 1, RUNNING_DIGESTS = 2, CHANGED = 3, OVER = 4 };
enum LetterKind : uint8_t { HAVE = 1, HAVE_ALL = 2, STILL_AT_WORK = 3, FINAL_VERDICT = 4, INTAKE = 5 };

class Writing {
 public:
  explicit Writing(uint8_t kind) { Add(kind); }

  template <std::unsigned_integral Number>
  void Add(Number number) {
    for (size_t i = 0; i < sizeof number; ++i) bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
  }
  void Add(std::span<const uint8_t> more) { bytes.insert(bytes.end(), more.begin(), more.end()); }
  /// As much of it as there is room for.
  void Add(const std::string& text) {
    const size_t length = std::min(text.size(), QUORL_TEXT_SIZE - std::min<size_t>(bytes.size(), QUORL_TEXT_SIZE));
    bytes.insert(bytes.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
  }

  Bytes bytes;
};

/// Reads from the front; once there is too little, everything is 0 and IsRead says false.
class Reading {
 public:
  explicit Reading(std::span<const uint8_t> text) : rest(text) {}

  template <typename Number>
  Number Take() {
    Number number = 0;
    if (rest.size() < sizeof number) {
      isShort = true;
      rest = {};
      return number;
    }
    for (size_t i = 0; i < sizeof number; ++i) number = static_cast<Number>(number | Number{rest[i]} << (8 * i));
    rest = rest.subspan(sizeof number);
    return number;
  }
  Digest TakeDigest() {
    Digest digest{};
    for (uint8_t& byte : digest) byte = Take<uint8_t>();
    return digest;
  }
  std::string TakeText() {
    std::string text(rest.begin(), rest.end());
    rest = {};
    return text;
  }
  size_t Left() const { return rest.size(); }
  /// All of it, and nothing beyond.
  bool IsRead() const { return !isShort && rest.empty(); }

 private:
  std::span<const uint8_t> rest;
  bool isShort = false;
};

Bytes Format(const About& about) {
  Writing text(ABOUT);
  text.Add(static_cast<uint8_t>(about.purpose));
  text.Add(about.round);
  text.Add(about.files);
  text.Add(about.bytes);
  text.Add(static_cast<uint8_t>(about.manifestLast ? 1 : 0));
  for (const uint32_t address : about.onlyFor) text.Add(address);
  return text.bytes;
}

Bytes Format(const RunningDigests& running) {
  Writing text(RUNNING_DIGESTS);
  for (const RunningDigests::One& one : running.digests) {
    text.Add(one.file);
    text.Add(std::span<const uint8_t>(one.digest));
  }
  return text.bytes;
}

Bytes Format(const Changed& changed) {
  Writing text(CHANGED);
  text.Add(changed.name);
  return text.bytes;
}

Bytes Format(const Over&) {
  return Writing(OVER).bytes;
}

Bytes Format(const Have& have) {
  Writing text(HAVE);
  text.Add(have.round);
  for (const Have::Run& run : have.runs) {
    text.Add(static_cast<uint8_t>(run.kind));
    text.Add(run.file);
    text.Add(run.first);
    text.Add(run.count);
  }
  return text.bytes;
}

Bytes Format(const HaveAll& all) {
  Writing text(HAVE_ALL);
  text.Add(all.round);
  return text.bytes;
}

Bytes Format(const StillAtWork& work) {
  Writing text(STILL_AT_WORK);
  text.Add(work.round);
  return text.bytes;
}

Bytes Format(const FinalVerdict& verdict) {
  Writing text(FINAL_VERDICT);
  text.Add(verdict.status);
  text.Add(verdict.files);
  text.Add(verdict.text);
  return text.bytes;
}

Bytes Format(const Intake& intake) {
  Writing text(INTAKE);
  for (const uint32_t count : {intake.came, intake.lost, intake.overflowed}) text.Add(count);
  text.Add(intake.memory);
  return text.bytes;
}

std::optional<Word> ReadAbout(Reading& text) {
  About about;
  const auto purpose = text.Take<uint8_t>();
  if (purpose != 1 && purpose != 2) return std::nullopt;
  about.purpose = static_cast<About::Purpose>(purpose);
  about.round = text.Take<uint8_t>();
  about.files = text.Take<uint32_t>();
  about.bytes = text.Take<uint64_t>();
  about.manifestLast = text.Take<uint8_t>() != 0;
  while (text.Left() > 0 && about.onlyFor.size() < MOST_MEANT) about.onlyFor.push_back(text.Take<uint32_t>());
  return about;
}

std::optional<Word> ReadDigests(Reading& text) {
  RunningDigests running;
  while (text.Left() > 0) {
    RunningDigests::One one;
    one.file = text.Take<uint32_t>();
    one.digest = text.TakeDigest();
    running.digests.push_back(one);
  }
  return running;
}

std::optional<Letter> ReadHave(Reading& text) {
  Have have;
  have.round = text.Take<uint8_t>();
  while (text.Left() > 0) {
    Have::Run run;
    const auto kind = text.Take<uint8_t>();
    if (kind < 1 || kind > 3) return std::nullopt;
    run.kind = static_cast<Have::Kind>(kind);
    run.file = text.Take<uint32_t>();
    run.first = text.Take<uint32_t>();
    run.count = text.Take<uint32_t>();
    have.runs.push_back(run);
  }
  return have;
}

Letter ReadIntake(Reading& text) {
  Intake intake;
  for (uint32_t* count : {&intake.came, &intake.lost, &intake.overflowed}) *count = text.Take<uint32_t>();
  intake.memory = text.Take<uint16_t>();
  return intake;
}

Letter ReadVerdict(Reading& text) {
  FinalVerdict verdict;
  verdict.status = text.Take<uint32_t>();
  verdict.files = text.Take<uint32_t>();
  verdict.text = text.TakeText();
  return verdict;
}

}  // namespace

Bytes FormatWord(const Word& word) {
  return std::visit([](const auto& one) { return Format(one); }, word);
}

std::optional<Word> ParseWord(std::span<const uint8_t> bytes) {
  Reading text(bytes);
  std::optional<Word> word;
  switch (text.Take<uint8_t>()) {
    case ABOUT: word = ReadAbout(text); break;
    case RUNNING_DIGESTS: word = ReadDigests(text); break;
    case OVER: word = Over{}; break;
    case CHANGED: word = Changed{text.TakeText()}; break;
    default: break;
  }
  return text.IsRead() ? word : std::nullopt;
}

Bytes FormatLetter(const Letter& letter) {
  return std::visit([](const auto& one) { return Format(one); }, letter);
}

std::optional<Letter> ParseLetter(std::span<const uint8_t> bytes) {
  Reading text(bytes);
  std::optional<Letter> letter;
  switch (text.Take<uint8_t>()) {
    case HAVE: letter = ReadHave(text); break;
    case HAVE_ALL: letter = HaveAll{text.Take<uint8_t>()}; break;
    case STILL_AT_WORK: letter = StillAtWork{text.Take<uint8_t>()}; break;
    case FINAL_VERDICT: letter = ReadVerdict(text); break;
    case INTAKE: letter = ReadIntake(text); break;
    default: break;
  }
  return text.IsRead() ? letter : std::nullopt;
}

bool Say(const Word& word) {
  const Bytes text = FormatWord(word);
  return SendWord(text.data(), static_cast<uint32_t>(text.size())) == 1;
}

bool Say(const Letter& letter) {
  const Bytes text = FormatLetter(letter);
  return SendLetter(text.data(), static_cast<uint32_t>(text.size())) == 1;
}

std::optional<HeardLetter> NextLetter() {
  QuorlText heard{.size = sizeof heard};
  while (TakeLetter(&heard) == 1) {
    if (auto letter = ParseLetter(std::span(heard.text).first(heard.length)))
      return HeardLetter{heard.address, std::move(*letter)};
  }
  return std::nullopt;
}

std::optional<Word> NextWord() {
  QuorlText heard{.size = sizeof heard};
  while (TakeWord(&heard) == 1) {
    if (auto word = ParseWord(std::span(heard.text).first(heard.length))) return word;
  }
  return std::nullopt;
}

}  // namespace quorl::cli
