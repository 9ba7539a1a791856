// The stream in symbols, on SendThread. The schedule decides under the context's mutex; reading, coding and sending
// happen outside it.
#include "sender/coded_stream.h"

#include <algorithm>

#include "coded/code/erasure_code.h"

namespace quorl {

namespace {

// As many as the system may cut out of one send.
constexpr size_t DATAGRAMS_AT_ONCE = 44;

}  // namespace

CodedStream::CodedStream(const TransferParts& parts)
    : parts(parts), pacer(parts.plan.rate), source(parts.context.machine.clock) {}

bool CodedStream::Reaches(SenderContext& context) {
  if ((context.correspondence.OurOffer().capabilities & KNOWS_SYMBOLS) == 0 || context.table.Count() == 0) return false;
  for (int32_t row = 0; row < context.table.Count(); ++row) {
    const KnownPeer& peer = context.table[row].peer;
    if ((peer.capabilities & KNOWS_SYMBOLS) == 0 || peer.longestOffer < CODED_DATAGRAM) return false;
  }
  return true;
}

bool CodedStream::Prepare() {
  answered = parts.context.machine.threads.MakeEvent();
  if (!answered) return false;
  Catalogue list{parts.plan.autoOpenName, {}, parts.plan.lists->ArrayEmptyDir};
  std::vector<FileShape> shapes;
  uint64_t blocks = 0;
  for (uint32_t number = 1; number <= parts.plan.FileCount(); ++number) {
    const auto shape = parts.progress.AnnouncedShape(number);
    if (!shape) return false;
    list.files.push_back({parts.plan.File(number).relativeName, *shape});
    shapes.push_back(*shape);
    blocks += shape->BlockCount();
  }
  catalogue = BuildCatalogue(list);
  if (catalogue.size() > LONGEST_CATALOGUE) return false;
  catalogueGroups = static_cast<uint32_t>((catalogue.size() + GROUP_SIZE - 1) / GROUP_SIZE);
  poll.catalogueLength = static_cast<uint32_t>(catalogue.size());
  // Whole symbols, the last one filled up with zeroes.
  catalogue.resize((catalogueGroups - 1) * GROUP_SIZE +
                   SymbolsOf(catalogue.size() - (catalogueGroups - 1) * GROUP_SIZE) * SYMBOL_SIZE);
  contents = GroupLayout(std::move(shapes));
  poll.transfer = static_cast<uint32_t>(parts.context.machine.clock.Now().count()) | 1;
  poll.symbolSize = SYMBOL_SIZE;
  poll.platform = parts.context.machine.shell.IsNtPlatform() ? 1 : 0;
  poll.totalBlocks = static_cast<uint32_t>(blocks);
  poll.fileCount = parts.plan.FileCount();
  poll.targetFolder = parts.plan.targetFolder;
  poll.targetPath = NameField::From(parts.plan.targetPath);
  firstInWindow = catalogueGroups;
  const std::scoped_lock lock(parts.context.mutex);
  schedule = std::make_unique<CodedSchedule>(catalogueGroups, catalogueGroups + contents.Count());
  LookAtReceivers(parts.context.machine.clock.Now());
  return true;
}

StreamEnd CodedStream::Run() {
  const StreamEnd end = SendAll();
  // As of the other stream: the host may want to remove the file while the sender is still there.
  source.Close();
  return end;
}

StreamEnd CodedStream::SendAll() {
  std::vector<CodedSchedule::SendStep> toSend;
  for (;;) {
    if (parts.end.IsStopRequested()) return StreamEnd::Stopped;
    const CodedSchedule::Step step = NextStep(toSend);
    std::optional<StreamEnd> end;
    if (!toSend.empty()) end = Send(toSend);
    if (end) return *end;
    if (std::holds_alternative<CodedSchedule::EndStep>(step)) return StreamEnd::Complete;
    if (const auto* open = std::get_if<CodedSchedule::OpenStep>(&step)) end = Do(*open);
    if (const auto* ask = std::get_if<CodedSchedule::PollStep>(&step)) end = Do(*ask);
    if (const auto* wait = std::get_if<CodedSchedule::WaitStep>(&step)) end = Do(*wait);
    if (end) return *end;
  }
}

/// With the context's mutex held.
uint32_t CodedStream::Rate() const {
  const uint32_t named = parts.context.rate;
  return named == 0 ? ownRate.Rate() : named;
}

// Until there is enough to send at once, or something else to do.
CodedSchedule::Step CodedStream::NextStep(std::vector<CodedSchedule::SendStep>& toSend) {
  toSend.clear();
  const Moment now = parts.context.machine.clock.Now();
  const std::scoped_lock lock(parts.context.mutex);
  pacer.ChangeRate(Rate());
  const size_t most = pacer.Burst(SYMBOL_DATAGRAM, DATAGRAMS_AT_ONCE);
  for (;;) {
    const CodedSchedule::Step step = schedule->Next(now);
    if (const auto* poll = std::get_if<CodedSchedule::PollStep>(&step)) {
      LookAtReceivers(now);
      ownRate.Polled(poll->round, !poll->only, symbolsSent + toSend.size(), now);
    }
    const auto* send = std::get_if<CodedSchedule::SendStep>(&step);
    if (!send) return step;
    toSend.push_back(*send);
    if (toSend.size() == most) return step;
  }
}

void CodedStream::LookAtReceivers(Moment now) {
  for (int32_t row = 0; row < parts.context.table.Count(); ++row) {
    const ClientEntry& entry = parts.context.table[row];
    if (entry.status != 0) {
      schedule->Leave(entry.addr.address);
      ownRate.Leave(entry.addr.address);
    } else if (joined.insert(entry.addr.address).second) {
      schedule->Join(entry.addr.address, now);
    }
  }
}

void CodedStream::TakeLacks(const Lacks& lacks, uint32_t address) {
  const Moment now = parts.context.machine.clock.Now();
  schedule->TakeLacks(address, lacks, now);
  ownRate.Take(address, lacks.head.round, lacks.head.arrived, now);
  answered->Set();
}

std::optional<StreamEnd> CodedStream::Do(const CodedSchedule::OpenStep& step) {
  {
    const std::scoped_lock lock(parts.context.mutex);
    for (; firstInWindow < schedule->FirstOpen() && !window.empty(); ++firstInWindow) window.pop_front();
  }
  if (step.first >= catalogueGroups && step.first != firstInWindow + window.size()) {
    window.clear();
    firstInWindow = step.first;
  }
  for (uint32_t group = step.first; group < step.end; ++group) {
    if (group >= catalogueGroups) {
      auto read = ReadGroup(group - catalogueGroups);
      if (!read) return parts.end.IsStopRequested() ? StreamEnd::Stopped : StreamEnd::FileUnreadable;
      window.push_back(std::move(*read));
    }
    const size_t symbols = GroupBytes(group).size() / SYMBOL_SIZE;
    const std::scoped_lock lock(parts.context.mutex);
    schedule->Opened(group, symbols);
  }
  return std::nullopt;
}

/// The group's symbols, filled up with zeroes; none when it need not or cannot be sent, and is left to the repair
/// behind the stream. Nothing on a read error.
std::optional<CodedStream::Group> CodedStream::ReadGroup(uint32_t group) {
  // In the second pass for who has come late; nobody is told of the same blocks again.
  const bool isAgain = group < readUpTo;
  readUpTo = std::max(readUpTo, group + 1);
  if (!isAgain && IsSkipped(group)) return Group{};
  const size_t length = contents.BytesIn(group);
  const Group read{slabs.Take(), SymbolsOf(length)};
  uint8_t* const bytes = read.slab.get();
  std::fill(bytes + length, bytes + read.symbols * SYMBOL_SIZE, uint8_t{0});
  bool isWhole = true;
  auto runs = contents.Runs(group);
  while (const auto run = runs.Next()) {
    const auto isThere = ReadRun(*run, {bytes + run->offset, run->size}, isAgain);
    if (!isThere) return std::nullopt;
    isWhole = isWhole && *isThere;
  }
  return isWhole ? read : Group{};
}

/// Whether the stream leaves all of it out, which is then noted.
bool CodedStream::IsSkipped(uint32_t group) {
  uint32_t blocks = 0;
  auto runs = contents.Runs(group);
  while (const auto run = runs.Next()) {
    for (uint32_t i = 0; i < run->count; ++i)
      if (!parts.plan.skipped.Has(run->file, run->first + i)) return false;
    blocks += run->count;
  }
  parts.progress.NoteSkipped(blocks);
  return true;
}

/// False when the file has shrunk; nothing on a read error.
std::optional<bool> CodedStream::ReadRun(const BlockRun& run, std::span<uint8_t> into, bool isAgain) {
  const uint32_t file = run.file;
  if (openFile != file) {
    openFile = 0;
    if (!OpenForTransfer(source, parts, file)) return std::nullopt;
    openFile = file;
  }
  const auto read = source.ReadRun(run.first, run.count, into);
  if (!read || parts.end.IsStopRequested()) return std::nullopt;
  if (read->isShort) parts.progress.NoteShrunkFile(file);
  auto rest = into.first(read->bytes);
  bool isNews = false;
  for (uint32_t block = run.first; block != run.first + run.count; ++block) {
    const auto bytes = rest.first(std::min(BLOCK_SIZE, rest.size()));
    rest = rest.subspan(bytes.size());
    if (!isAgain && parts.plan.skipped.Has(file, block)) {
      parts.progress.NoteSkipped(1);
      continue;
    }
    parts.progress.NoteBlock(file, isAgain);
    if (isAgain) continue;
    isNews = true;
    if (parts.plan.listener) parts.plan.listener(file, block, bytes);
  }
  if (isNews) parts.context.PostFileName(file, parts.plan.File(file).relativeName);
  return !read->isShort;
}

std::span<const uint8_t> CodedStream::GroupBytes(uint32_t group) const {
  if (group >= catalogueGroups) {
    const size_t place = group - firstInWindow;
    if (place >= window.size()) return {};
    return {window[place].slab.get(), window[place].symbols * SYMBOL_SIZE};
  }
  const size_t begin = group * GROUP_SIZE;
  return std::span(catalogue).subspan(begin, std::min(GROUP_SIZE, catalogue.size() - begin));
}

std::optional<StreamEnd> CodedStream::Send(const std::vector<CodedSchedule::SendStep>& steps) {
  datagrams.resize(steps.size());
  gathered.clear();
  for (size_t i = 0; i < steps.size(); ++i) {
    const auto [group, index] = steps[i];
    const auto head = Build(SymbolHead{poll.transfer, group, index});
    const auto symbol = std::copy(head.begin(), head.end(), datagrams[i].begin());
    gathered.push_back(datagrams[i]);
    if (index >= MOST_SOURCE_SYMBOLS) continue;
    std::copy_n(GroupBytes(group).begin() + index * ptrdiff_t{SYMBOL_SIZE}, SYMBOL_SIZE, symbol);
  }
  MakeRepairSymbols(steps);
  if (const auto next = pacer.NextSend(true)) parts.end.PauseUntil(*next);
  if (parts.end.IsStopRequested()) return StreamEnd::Stopped;
  if (!parts.context.sockets.SendToGroup(gathered, parts.end.Patience()))
    return parts.end.IsStopRequested() ? StreamEnd::Stopped : StreamEnd::SendFailed;
  symbolsSent += gathered.size();
  const Moment now = parts.context.machine.clock.Now();
  for (const auto& datagram : gathered) pacer.Sent(now, datagram.size());
  return std::nullopt;
}

/// Those of one group follow one another, and are made at once.
void CodedStream::MakeRepairSymbols(const std::vector<CodedSchedule::SendStep>& steps) {
  std::vector<uint8_t> indices;
  std::vector<uint8_t*> into;
  for (size_t i = 0; i < steps.size(); ++i) {
    const auto [group, index] = steps[i];
    if (index < MOST_SOURCE_SYMBOLS) continue;
    NoteRepair(group);
    indices.push_back(index);
    into.push_back(datagrams[i].data() + LENGTH<SymbolHead>);
    const bool goesOn =
        i + 1 < steps.size() && steps[i + 1].group == group && steps[i + 1].index >= MOST_SOURCE_SYMBOLS;
    if (goesOn) continue;
    EncodeSymbols(GroupBytes(group), SYMBOL_SIZE, indices, into);
    indices.clear();
    into.clear();
  }
}

/// What goes out as repair counts as blocks sent again, as many as it is bytes for.
void CodedStream::NoteRepair(uint32_t group) {
  repairBytes += SYMBOL_SIZE;
  if (repairBytes < BLOCK_SIZE || group < catalogueGroups) return;
  repairBytes -= BLOCK_SIZE;
  parts.progress.NoteBlock(contents.Runs(group - catalogueGroups).Next()->file, true);
}

std::optional<StreamEnd> CodedStream::Do(const CodedSchedule::PollStep& step) {
  poll.round = step.round;
  poll.firstGroup = step.firstGroup;
  poll.endGroup = step.endGroup;
  poll.spread = step.spread;
  // Right behind symbols it would find a full queue on the way as they have left it, each time.
  if (const auto next = pacer.NextSend(true)) parts.end.PauseUntil(*next);
  if (step.only) {
    std::optional<Endpoint> to;
    {
      const std::scoped_lock lock(parts.context.mutex);
      if (const ClientEntry* row = parts.context.table.Find(*step.only)) to = row->addr;
    }
    // It is asked again.
    if (to) parts.context.sockets.SendTo(*to, Build(poll), parts.end.Patience());
  } else if (!parts.context.sockets.SendToGroup(Build(poll), parts.end.Patience())) {
    return parts.end.IsStopRequested() ? StreamEnd::Stopped : StreamEnd::SendFailed;
  }
  pacer.Sent(parts.context.machine.clock.Now(), LENGTH<Poll>);
  return std::nullopt;
}

std::optional<StreamEnd> CodedStream::Do(const CodedSchedule::WaitStep& step) {
  const Duration left = step.until - parts.context.machine.clock.Now();
  if (left > Duration::zero() && answered->Wait(left)) answered->Reset();
  return std::nullopt;
}

}  // namespace quorl
