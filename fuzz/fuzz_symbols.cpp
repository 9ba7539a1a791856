// The decisions of a transfer in symbols, on either side, whatever comes: what is answered is in order and within
// bounds, what is handed over lies within its group, and what is to be sent exists.
#include <chrono>

#include "coded/receiver/symbol_store.h"
#include "coded/sender/coded_schedule.h"
#include "fuzz/fuzz_input.h"

namespace quorl {
namespace {

using fuzz::Input;

Catalogue DrawCatalogue(Input& input) {
  Catalogue catalogue;
  for (uint32_t i = 1 + input.Below(8); i > 0; --i)
    catalogue.files.push_back({input.TakeText(input.Below(20)), {input.Number() % 300, input.Take<uint8_t>()}});
  return catalogue;
}

void CheckAnswer(const Lacks& answer, const Poll& poll) {
  MUST(answer.groups.size() <= MOST_LACKS && answer.head.endGroup <= poll.endGroup);
  for (size_t i = 0; i < answer.groups.size(); ++i) {
    MUST(answer.groups[i].group < answer.head.endGroup && answer.groups[i].symbols <= MOST_SOURCE_SYMBOLS);
    MUST(i == 0 || answer.groups[i - 1].group < answer.groups[i].group);
  }
}

void TakeWhole(SymbolStore& store) {
  while (const auto run = store.NextRun())
    MUST(run->blocks.count > 0 && run->blocks.offset + run->blocks.size <= GROUP_SIZE);
}

void Receive(Input& input) {
  const Catalogue catalogue = DrawCatalogue(input);
  std::vector<uint8_t> list = BuildCatalogue(catalogue);
  Poll poll{.transfer = 7, .catalogueLength = static_cast<uint32_t>(list.size()), .symbolSize = SYMBOL_SIZE};
  if (input.Below(8) == 0) poll.catalogueLength = input.Number();
  if (!SymbolStore::Takes(poll)) return;
  SymbolStore store(poll);
  bool hasContents = false;
  list.resize(SYMBOL_SIZE);
  const std::vector<uint8_t> other(SYMBOL_SIZE + 1, input.Take<uint8_t>());
  while (!input.IsEmpty()) {
    switch (input.Below(4)) {
      case 0: store.Take({{7, 0, 0}, list}); break;
      case 1: {
        const SymbolHead head{7, input.Number(), input.Take<uint8_t>()};
        store.Take({head, std::span(other).first(input.Below(16) == 0 ? input.Below(200) : SYMBOL_SIZE)});
        break;
      }
      case 2: TakeWhole(store); break;
      default:
        poll.firstGroup = input.Number();
        poll.endGroup = input.Number();
        CheckAnswer(store.Answer(poll), poll);
    }
    const auto whole = hasContents ? std::nullopt : store.TakeCatalogue();
    if (!whole) continue;
    ParseCatalogue(*whole, static_cast<uint32_t>(catalogue.files.size()), input.Number());
    std::vector<FileShape> shapes;
    for (const auto& file : catalogue.files) shapes.push_back(file.shape);
    store.SetContents(std::move(shapes));
    hasContents = true;
  }
}

void Send(Input& input) {
  constexpr uint32_t SYMBOLS = 5;
  const uint32_t catalogueGroups = 1 + input.Below(3);
  const uint32_t groups = catalogueGroups + 1 + input.Take<uint8_t>();
  CodedSchedule schedule(catalogueGroups, groups);
  Moment now = std::chrono::seconds(1);
  uint32_t opened = 0;
  while (!input.IsEmpty()) {
    switch (input.Below(4)) {
      case 0: schedule.Join(input.Below(5), now); break;
      case 1: schedule.Leave(input.Below(5)); break;
      case 2: {
        Lacks lacks{{.round = input.Number(), .endGroup = input.Number()}, {}};
        for (uint32_t i = input.Below(6); i > 0; --i) lacks.groups.push_back({input.Number(), input.Take<uint8_t>()});
        schedule.TakeLacks(input.Below(5), lacks, now);
        break;
      }
      default: now += std::chrono::milliseconds(input.Take<uint8_t>());
    }
    for (uint32_t i = input.Below(64); i > 0; --i) {
      const auto step = schedule.Next(now);
      if (const auto* open = std::get_if<CodedSchedule::OpenStep>(&step)) {
        MUST(open->first < open->end && open->end <= groups &&
             open->end - schedule.FirstOpen() <= CodedSchedule::WINDOW);
        for (opened = open->first; opened < open->end; ++opened) schedule.Opened(opened, opened % 7 == 0 ? 0 : SYMBOLS);
      }
      if (const auto* send = std::get_if<CodedSchedule::SendStep>(&step)) {
        MUST(send->group < opened && (send->group < catalogueGroups || send->group >= schedule.FirstOpen()));
        MUST(send->group % 7 != 0 && (send->index < SYMBOLS || send->index >= MOST_SOURCE_SYMBOLS));
      }
      if (std::holds_alternative<CodedSchedule::EndStep>(step)) return;
    }
  }
}

}  // namespace

void fuzz::Run(Input input) {
  input.Below(2) == 0 ? Receive(input) : Send(input);
}

}  // namespace quorl
