#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/options/options.h"
#include "cli/outcome/exits.h"
#include "cli/show/fact.h"
#include "cli/system/files.h"
#include "cli/system/terminal.h"

namespace quorl::cli {

/// Who gets to see a line: everyone, also under -q; everyone else; who asked with -v; who asked with -vv.
enum class Level { Always, Normal, Files, Protocol };

enum class Tint { Good, Bad, Doubtful, Strong };

/// How far a transfer is, in the three forms that it is shown in.
struct ProgressView {
  std::vector<std::string> lines;  ///< The block on a terminal, each at most Reporter::Width() columns.
  std::string plain;               ///< One line where there is no terminal.
  Fact fact{"progress"};
};

/// The one place through which everything goes that the command tells: lines on standard output, progress, warnings
/// and errors on standard error, or one JSON object a line on standard output; and all of it to the log. What is passed
/// as text has its names escaped already (Escape); facts take them as they are. A closed output is no error: the
/// transfer matters more than its story. Used by the main thread.
class Reporter {
 public:
  /// `command`: what the first fact names.
  Reporter(const OutputOptions& options, std::string_view command);
  ~Reporter();
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  /// Throws a Failure when the log of the options cannot be opened, or what programs are to read not be written.
  void Open();

  /// A line, or several, on standard output, and the fact that they show. Without a text: the fact alone.
  void Say(Level level, const Fact& fact, std::string_view text);
  void Say(const Fact& fact, std::string_view text) { Say(Level::Normal, fact, text); }

  /// A line that is no news to a program; it becomes a fact of type "note".
  void Say(std::string_view text) { Say(Fact("note").Add("text", text), text); }

  /// The same on standard error, begun with "warning: ".
  void Warn(const Fact& fact, std::string_view text);
  void Warn(std::string_view text) { Warn(Fact("warning").Add("text", text), text); }

  /// What failed, why, and what to do next. Does not end the command.
  void Complain(const Failure& failure);

  /// Whether progress would be shown now (5 times a second on a terminal, else every 10 s, as facts every second);
  /// asked before what it shows is gathered.
  bool WantsProgress() const;
  void Progress(const ProgressView& view);

  /// Takes the progress block off the terminal.
  void ClearProgress();

  /// A question on the terminal, which stays until ClearProgress or the next line.
  void Ask(std::string_view text);

  /// Facts that belong to the last one, "result".
  Fact& Result() { return result; }

  /// The last fact. Returns `exitCode`, or that of a failure where it is 0 and a program has not got all facts. Nothing
  /// may be told after it.
  int End(int exitCode);

  /// Columns to use, at most 100.
  size_t Width() const;
  bool IsJson() const { return options.json; }

  /// Whether the options ask for as much.
  bool Wants(Level level) const;

  /// Whether a block is redrawn, as opposed to plain lines.
  bool HasBlock() const { return block; }

  /// The text in that colour, or as it is when there are none.
  std::string Painted(Tint tint, std::string_view text) const;

 private:
  std::chrono::steady_clock::duration Interval() const;
  void Emit(const Fact& fact);
  void Log(std::string_view text);
  void Draw(const ProgressView& view);
  void SetTitle(std::string_view text);
  std::optional<Failure> WhyLost() const;

  OutputOptions options;
  bool block = false;
  bool color = false;
  bool titled = false;            ///< The terminal has a title of ours.
  SystemError lost;               ///< Why a fact could not be written.
  std::optional<KeyMode> unseen;  ///< While there is a block: typed keys would tear it.
  size_t shownLines = 0;
  uint64_t sequence = 0;
  AppendedFile log;
  Fact result{"result"};
  std::chrono::steady_clock::time_point started;
  std::optional<std::chrono::steady_clock::time_point> lastProgress;
};

}  // namespace quorl::cli
