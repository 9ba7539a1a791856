// The simulated room from a shell.
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "sim/campaign/campaign.h"
#include "sim/studies/capture.h"
#include "sim/studies/coded_study.h"
#include "sim/studies/exhaust.h"
#include "sim/studies/study.h"

namespace quorl::sim {
namespace {

constexpr const char* USAGE =
    R"(usage: sim [--seed NUMBER|COMMIT] [--runs N | --for SECONDS] [--receivers N] [--trace FILE]
           runs drawn from consecutive numbers, all faults first, then none; with --trace one run, whose datagrams
           go to FILE as a capture and its events to FILE.log
       sim capture FILE
           small transfers in which every kind of datagram occurs, as a capture, and as text into FILE.log
       sim exhaust
           a small transfer with every single lost datagram and every pair
       sim study [ROOMS [SECONDS]]
           rooms of 1 to 200 receivers, losses of 0 to 20 %, both profiles: so many rooms a cell, or as many as fit in
           the time for a cell; and the biggest room, with 10 000 blocks
       sim study coded [ROOMS]
           what the stream in symbols achieves: big rooms with loss, a narrow link behind a fast one, a slow disk, and
           ROOMS rooms that lose a fifth of everything
)";

struct Arguments {
  CampaignOptions campaign{};
  std::string trace{};
};

std::optional<uint64_t> ParseNumber(std::string_view text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Anything that is not a number, such as a commit, stands for one.
uint64_t NumberOf(std::string_view text) {
  if (const auto number = ParseNumber(text)) return *number;
  uint64_t hash = 0;
  for (const char character : text) hash = Mix(hash ^ static_cast<uint8_t>(character));
  return hash >> 16;
}

bool Apply(std::string_view name, std::string_view value, Arguments& arguments) {
  if (name == "--seed") {
    arguments.campaign.firstNumber = NumberOf(value);
    return true;
  }
  if (name == "--trace") {
    arguments.trace = value;
    return !value.empty();
  }
  if (name == "--for" && value.ends_with('s')) value.remove_suffix(1);
  const auto number = ParseNumber(value);
  if (!number || *number == 0) return false;
  if (name == "--runs") {
    arguments.campaign.runs = *number;
  } else if (name == "--for") {
    arguments.campaign.realTime = std::chrono::seconds(*number);
  } else if (name == "--receivers" && *number <= 200) {
    arguments.campaign.receivers = *number;
  } else {
    return false;
  }
  return true;
}

std::string Commit() {
  const char* const commit = std::getenv("QUORL_COMMIT");
  return commit == nullptr ? "unknown" : commit;
}

void ReportViolation(const CampaignOptions& options, const RunPlan& plan, const RunResult& result) {
  for (const std::string& violation : result.violations) std::printf("  %s\n", violation.c_str());
  const std::string receivers = options.receivers ? " --receivers " + std::to_string(*options.receivers) : "";
  std::printf("FAILED: seed %llu, commit %s, repeat with: ./dev sim --seed %llu --runs 1%s\n",
              static_cast<unsigned long long>(plan.number), Commit().c_str(),
              static_cast<unsigned long long>(plan.number), receivers.c_str());
  std::fflush(stdout);
}

extern "C" void ReportAbort(int) {
  std::fprintf(stderr, "FAILED: the program ended in the run with seed %llu\n",
               static_cast<unsigned long long>(CurrentRun()));
}

int RunOne(const Arguments& arguments) {
  const RunPlan plan = DrawPlan(arguments.campaign.firstNumber, arguments.campaign.receivers);
  std::fputs(ToText(plan).c_str(), stdout);
  std::fflush(stdout);
  const RunResult result = Execute(plan, arguments.trace);
  CampaignSummary summary;
  summary.Add(plan, result);
  std::fputs(ToText(summary).c_str(), stdout);
  if (!arguments.trace.empty())
    std::printf("datagrams: %s, events: %s.log\n", arguments.trace.c_str(), arguments.trace.c_str());
  if (result.violations.empty()) return 0;
  ReportViolation(arguments.campaign, plan, result);
  return 1;
}

int RunMany(const Arguments& arguments) {
  const CampaignOptions& options = arguments.campaign;
  std::printf("seeds from %llu on, commit %s\n", static_cast<unsigned long long>(options.firstNumber),
              Commit().c_str());
  std::fflush(stdout);
  const auto start = std::chrono::steady_clock::now();
  const CampaignSummary summary = RunCampaign(
      options, [&](const RunPlan& plan, const RunResult& result) { ReportViolation(options, plan, result); });
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%s%.0f s of real time, %.0f deliveries a second\n", ToText(summary).c_str(), seconds,
              static_cast<double>(summary.deliveries) / seconds);
  return summary.violated == 0 ? 0 : 1;
}

int RunExhaust() {
  bool sound = true;
  for (const auto profile : {Profile::Classic, Profile::Robust}) {
    const auto tallies = Exhaust(profile);
    std::fputs(ToText(tallies).c_str(), stdout);
    for (const auto& tally : tallies) {
      // What a classic receiver says follows its rules; what its state says is true.
      const uint64_t wrong = profile == Profile::Classic ? tally.wronglyStated : tally.wronglyTold;
      sound = sound && tally.endless == 0 && wrong == 0;
    }
  }
  return sound ? 0 : 1;
}

int RunStudyWith(const std::vector<std::string_view>& words, unsigned threads) {
  StudyOptions options{.threads = threads};
  const auto rooms = words.size() > 1 ? ParseNumber(words[1]) : options.rooms;
  const auto seconds = words.size() > 2 ? ParseNumber(words[2]) : static_cast<uint64_t>(options.realTime.count());
  if (!rooms || !seconds) {
    std::fputs(USAGE, stderr);
    return 2;
  }
  options.rooms = *rooms;
  options.realTime = std::chrono::seconds(*seconds);
  RunStudy(options);
  return 0;
}

int RunCodedStudyWith(const std::vector<std::string_view>& words, unsigned threads) {
  CodedStudyOptions options{.threads = threads};
  const auto rooms = words.size() > 2 ? ParseNumber(words[2]) : options.rooms;
  if (!rooms) {
    std::fputs(USAGE, stderr);
    return 2;
  }
  options.rooms = *rooms;
  RunCodedStudy(options);
  return 0;
}

int RunNamed(const std::vector<std::string_view>& words, unsigned threads) {
  if (words[0] == "exhaust") return RunExhaust();
  if (words[0] == "capture" && words.size() == 2) return WriteCapture(std::string(words[1])) ? 0 : 1;
  if (words[0] == "study" && words.size() > 1 && words[1] == "coded") return RunCodedStudyWith(words, threads);
  if (words[0] == "study") return RunStudyWith(words, threads);
  std::fputs(USAGE, stderr);
  return 2;
}

int Main(const std::vector<std::string_view>& words) {
  const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
  if (!words.empty() && !words[0].starts_with("--")) return RunNamed(words, threads);
  Arguments arguments;
  arguments.campaign.threads = threads;
  bool understood = words.size() % 2 == 0;
  for (size_t i = 0; understood && i < words.size(); i += 2) understood = Apply(words[i], words[i + 1], arguments);
  if (!understood) {
    std::fputs(USAGE, stderr);
    return 2;
  }
  std::signal(SIGABRT, ReportAbort);
  const bool isSingle = !arguments.trace.empty() || (arguments.campaign.runs == 1 && !arguments.campaign.realTime);
  return isSingle ? RunOne(arguments) : RunMany(arguments);
}

}  // namespace
}  // namespace quorl::sim

int main(int argc, char** argv) {
  return quorl::sim::Main({argv + 1, argv + argc});
}
