// The manifest: its text, what is made of hostile text, and what it vouches for.
#include "cli/manifest/manifest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "cli/manifest/arriving_digests.h"
#include "cli/manifest/links.h"
#include "cli/manifest/send_manifest.h"
#include "cli/manifest/stream_digests.h"
#include "cli/manifest/verify.h"
#include "cli/outcome/exits.h"
#include "temp_tree.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;

const ManifestKey KEY{DigestOf("a key of both sides")};

/// Lines under a seal that is right, whatever they are.
std::string Sealed(const std::string& lines, const ManifestKey* key = nullptr) {
  const std::string text = "quorl-manifest 1\n" + lines;
  return text + "seal " + (key ? "keyed " : "plain ") + ToHex(DigestOf(text, key)) + "\n";
}

std::string FileLine(const std::string& name) {
  return "file 4 1700000000.000000012 x " + std::string(64, 'a') + " " + name + "\n";
}

std::string WhyNot(const std::string& text, const ManifestKey* key = nullptr) {
  const auto parsed = ParseManifest(text, key);
  const auto* why = std::get_if<std::string>(&parsed);
  return why ? *why : "";
}

TEST(Manifest, ReadsWhatItWrites) {
  Manifest manifest;
  manifest.onlyFor = {0x0100007f, 0x0200007f};
  manifest.files = {{"z\n\x01 \xff", 0, Digest{1}, {-5, 0}, false},
                    {"a/b c", uint64_t{1} << 63, Digest{}, {1700000000, 12}, true}};
  manifest.emptyDirectories = {"a/\nempty"};
  const std::string zeros(62, '0');
  const std::string text = Sealed(
      "only 127.0.0.1 127.0.0.2\n"
      "file 9223372036854775808 1700000000.000000012 x 00" +
      zeros +
      " a/b c\n"
      "file 0 -5.000000000 - 01" +
      zeros +
      " z\\x0a\\x01 \xff\n"
      "dir a/\\x0aempty\n");
  EXPECT_EQ(FormatManifest(manifest, nullptr), text) << "in the order of names";
  const auto parsed = ParseManifest(text, nullptr);
  ASSERT_TRUE(std::holds_alternative<ReadManifest>(parsed)) << std::get<std::string>(parsed);
  EXPECT_EQ(FormatManifest(std::get<ReadManifest>(parsed).manifest, nullptr), text);
}

TEST(Manifest, NamesTheKindOfItsDigestsAndHasNoOther) {
  Manifest manifest;
  manifest.kind = DigestKind::Xxh3;
  manifest.files = {{"a", 3, DigestOf("abc", DigestKind::Xxh3), {1, 0}, false}};
  const std::string text = FormatManifest(manifest, nullptr);
  EXPECT_EQ(text.substr(0, text.find("seal")),
            "quorl-manifest 2 xxh3\nfile 3 1.000000000 - 06b05ab6733a618578af5f94892f3950 a\n");
  const auto parsed = ParseManifest(text, nullptr);
  ASSERT_TRUE(std::holds_alternative<ReadManifest>(parsed)) << std::get<std::string>(parsed);
  EXPECT_EQ(FormatManifest(std::get<ReadManifest>(parsed).manifest, nullptr), text);
  for (size_t i = 0; i < text.size(); ++i) {
    std::string changed = text;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_NE(WhyNot(changed), "") << i;
  }
  EXPECT_NE(WhyNot(text, &KEY), "") << "nobody vouches for it";
  EXPECT_NE(WhyNot(std::string(text).replace(text.find("seal plain"), 10, "seal keyed")), "");
  EXPECT_NE(WhyNot(std::string(text).replace(15, 6, "1")), "") << "digests of the other kind's length";
}

TEST(Manifest, HasOneTextAndNoOther) {
  EXPECT_EQ(WhyNot(Sealed("")), "");
  EXPECT_EQ(WhyNot(Sealed("only 127.0.0.1\n" + FileLine("a") + FileLine("b") + "dir c\n")), "");
  std::vector<std::string> wrong{
      // Order and number.
      FileLine("b") + FileLine("a"), FileLine("a") + FileLine("a"), "dir a\n" + FileLine("b"), "dir a\ndir a\n",
      "dir b\ndir a\n", FileLine("a") + "only 127.0.0.1\n", "only 127.0.0.1\nonly 127.0.0.1\n",
      // Other lines.
      "dir ../a\n", "dir \n", "only\n", "only 127.0.0.1 \n", "only 127.0.0.01\n", "only all\n", "\n", "unknown\n",
      "file\n", std::string("\0", 1) + "\n"};
  // Names that lead elsewhere, or could be written in two ways.
  for (const char* name :
       {"", "/a", "a/", "a//b", "..", "a/../b", ".", "a\\x5cb", "\\x41", "a\\x0A", "a\\x0", "a\\", "a\tb", "\\x00"})
    wrong.push_back(FileLine(name));
  wrong.push_back(FileLine(std::string(520, 'a')));
  const std::string digest(64, 'a');
  for (const char* head : {"file 04 1.000000012 x", "file -4 1.000000012 x", "file 18446744073709551616 1.000000012 x",
                           "file  4 1.000000012 x", "file 4 +1.000000012 x", "file 4 9999999999999.000000012 x",
                           "file 4 -9999999999999.000000012 x", "file 4 000000012 x", "file 4 1.12 x",
                           "file 4 1.1000000000 x", "file 4 1.000000012 y", "file 4 1.000000012 08",
                           "file 4 1.000000012 888", "file 4 1.000000012 4755", "File 4 1.000000012 x"})
    wrong.push_back(std::string(head) + " " + digest + " a\n");
  wrong.push_back("file 4 1.000000012 x " + digest.substr(1) + " a\n");
  wrong.push_back("file 4 1.000000012 x " + digest.substr(1) + "A a\n");
  for (const std::string& lines : wrong) EXPECT_EQ(WhyNot(Sealed(lines)), "the manifest is not well-formed") << lines;
  const std::string text = Sealed(FileLine("a"));
  for (size_t length = 0; length < text.size(); ++length) EXPECT_NE(WhyNot(text.substr(0, length)), "") << length;
  EXPECT_NE(WhyNot(text + "\n"), "");
  EXPECT_NE(WhyNot(Sealed(FileLine("a") + std::string(MANIFEST_LIMIT, 'x') + "\n")), "");
}

TEST(Manifest, ALinkIsFollowedOnlyToWhatIsDelivered) {
  const auto parsed = ParseManifest(Sealed(FileLine("t/a b") + FileLine("t/d/x") +
                                           "dir t/e\n"
                                           "link t/1//d/../a b\nlink t/2//1\nlink t/3//./e/\nlink t/4//../t/d\n"
                                           "link t/5///t/a b\nlink t/6//../..\nlink t/7//../../in/t/a b\n"
                                           "link t/8//4/x\nlink t/9//9\nlink t/a//there/../a b\nlink t/b//..\n"
                                           "link t/c//9\nlink t/d1//d\\x5c..\n"),
                                    nullptr);
  ASSERT_TRUE(std::holds_alternative<ReadManifest>(parsed)) << std::get<std::string>(parsed);
  const Manifest& manifest = std::get<ReadManifest>(parsed).manifest;
  std::map<std::string, std::set<std::string>> whys;
  std::vector<std::string> order;
  for (const StagedTree::Link& link : LinksOf(manifest)) {
    whys[link.why].insert(link.name.substr(2));
    order.push_back(link.name);
  }
  EXPECT_EQ(whys, (decltype(whys){{"", {"1", "2", "3", "4"}},
                                  {"leads out of what is delivered", {"5", "6", "7", "b"}},
                                  {"leads to nothing that is delivered", {"a", "d1"}},
                                  {"leads through another link", {"8"}},
                                  {"leads to itself", {"9"}},
                                  {"leads to a link that is left out", {"c"}}}));
  EXPECT_LT(std::find(order.begin(), order.end(), "t/1"), std::find(order.begin(), order.end(), "t/2"));
  for (const char* lines :
       {"link a//a/../b\nlink a//c\n", "link b//x\nlink a//x\n", "link a//x\ndir b\n", "link a/x\n", "link a//\n",
        "link //a\n", "link a//b\\x00\n", "dir a/b\nlink a//x\n", "dir a\nlink a//x\n", "link a//x\nlink a/b//x\n"})
    EXPECT_EQ(WhyNot(Sealed(lines)), "the manifest is not well-formed") << lines;
}

TEST(Manifest, ASealHoldsEveryBitAndAKeyAcceptsNoOther) {
  const std::string plain = Sealed(FileLine("a"));
  const std::string keyed = Sealed(FileLine("a"), &KEY);
  for (size_t i = 0; i < plain.size(); ++i) {
    std::string changed = plain;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_NE(WhyNot(changed), "") << i;
  }
  const ManifestKey other{DigestOf("another key")};
  EXPECT_EQ(WhyNot(keyed, &KEY), "");
  EXPECT_EQ(WhyNot(keyed, nullptr), "") << "who has no key cannot check it";
  EXPECT_NE(WhyNot(keyed, &other), "");
  EXPECT_NE(WhyNot(plain, &KEY), "");
  EXPECT_NE(WhyNot(Sealed(FileLine("a"), nullptr).replace(plain.find("seal plain"), 10, "seal keyed"), &KEY), "");
}

class ManifestOnDisk : public TempTreeTest {
 protected:
  ManifestOnDisk() {
    for (const char* name : {"a/b", "c*.txt", "run"}) Write(name, name);
    for (const char* name : {"a/b", "c*.txt", "run"})
      manifest.files.push_back(*ReadEntry({(root / name).native(), name}, DigestKind::Blake2b, nullptr));
    manifest.emptyDirectories = {"empty"};
    text = FormatManifest(manifest, nullptr);
    fs::rename(root / "c*.txt", root / "c.txt");
  }
  /// The differences, "name: why".
  std::vector<std::string> Differences() {
    Write(".quorl-manifest", text);
    const Directory directory = Directory::Open(root.native());
    const StagedTree tree = ListTree(directory);
    const auto found = FindManifest(directory, tree, nullptr);
    verified = *VerifyTree(directory, tree, std::get<ReadManifest>(*found).manifest, inPlace, nullptr);
    std::vector<std::string> texts;
    for (const auto& [name, why] : verified.differences) texts.push_back(name + ": " + why);
    return texts;
  }

  Manifest manifest;
  std::string text;
  InPlace inPlace;
  Verification verified;
};

TEST_F(ManifestOnDisk, EveryKindOfDifferenceIsNamed) {
  Write("a/b", "a/B");
  Write("c.txt", "longer than it was");
  fs::remove(root / "run");
  Write("extra", "x");
  fs::create_symlink("extra", root / "link");
  Write("twin", "x");
  fs::create_hard_link(root / "twin", root / "a/twin");
  std::vector<std::string> found = Differences();
  std::sort(found.begin() + 4, found.end());  // what is strange comes in the disk's order
  EXPECT_EQ(found, (std::vector<std::string>{
                       "a/b: has another content", "c*.txt: has another size", "run: is missing",
                       "extra: is not in the manifest", "a/twin: is neither a file nor a directory",
                       "link: is neither a file nor a directory", "twin: is neither a file nor a directory"}));
  EXPECT_TRUE(verified.verified.files.empty());
}

TEST_F(ManifestOnDisk, WhatStandsInItsPlaceNeedNotArriveAndWhatChangedIsNotTaken) {
  inPlace = {{"run", DigestOf("run")}, {"a/b", Digest{}}};
  fs::remove(root / "run");
  fs::remove(root / "a/b");
  EXPECT_EQ(Differences(), std::vector<std::string>{});
  EXPECT_EQ(verified.inPlace, 2u);
  inPlace["run"] = DigestOf("another");
  manifest.files[1].digest = Digest{};
  text = FormatManifest(manifest, nullptr);
  EXPECT_EQ(Differences(),
            (std::vector<std::string>{"c*.txt: changed while it was sent", "run: has another content in its place"}));
}

TEST(Catalogue, KeepsTheOrderOfTheTransferAndHoldsNoNameTwice) {
  Manifest catalogue;
  catalogue.files = {{"z", 1}, {"a", 2}};
  const std::string text = FormatCatalogue(catalogue, nullptr);
  const auto parsed = ParseCatalogue(text, nullptr);
  ASSERT_TRUE(std::holds_alternative<ReadManifest>(parsed));
  EXPECT_EQ(std::get<ReadManifest>(parsed).manifest.files[1].name, "a");
  EXPECT_NE(WhyNot(text), "") << "it is no manifest";
  catalogue.files[1].name = "z";
  EXPECT_TRUE(std::holds_alternative<std::string>(ParseCatalogue(FormatCatalogue(catalogue, nullptr), nullptr)));
}

TEST(StreamDigests, AreOfFilesThatAreOutAndUnchangedAndEndOnce) {
  Manifest manifest;
  manifest.files = {{"changed", 1}, {"whole", 4254}, {"known", 1, Digest{1}}};
  int completed = 0;
  const StreamDigests::Source source{[](size_t file) { return file == 0 ? "changed" : ""; }, [&] { ++completed; }};
  StreamDigests digests(manifest, {true, true, true}, source);
  const std::vector<uint8_t> block(4254, 'x');
  digests.Take(1, 0, std::span(block).first(1));
  digests.Take(2, 0, block);
  EXPECT_EQ(completed, 0) << "a full block is followed by an empty one";
  digests.Take(2, 1, {});
  EXPECT_EQ(completed, 1);
  EXPECT_EQ(manifest.files[0].digest, Digest{}) << "whoever got it has a mixture";
  EXPECT_EQ(manifest.files[1].digest, DigestOf(std::string(4254, 'x')));
  EXPECT_EQ(digests.TakeNews().size(), 1u);
  manifest.files.erase(manifest.files.begin());
  StreamDigests(manifest, {true, true}, source);
  EXPECT_EQ(completed, 2);
}

TEST_F(ManifestOnDisk, DigestsAreMadeWhileFilesAreWrittenInWhateverOrder) {
  const auto blocks = [](size_t count) { return std::string(count * 4254, 'b'); };
  Manifest catalogue;
  for (const auto& [name, size] :
       std::map<std::string, size_t>{{"again", 2}, {"gaps", 9}, {"late", 1}, {"none", 0}, {"whole", 3}}) {
    Write(name, blocks(size) + (name == "gaps" ? "tail" : ""));
    catalogue.files.push_back({name, fs::file_size(root / name), Digest{}});
  }
  const StagedTree tree = ListTree(Directory::Open(root.native()));
  // Each: its number, and the blocks that are written. What is at hand is right but for what has to be read back.
  const auto known = [&](const std::vector<std::array<size_t, 3>>& writes, uint32_t strange = 0) {
    ArrivingDigests digests(catalogue, root.native());
    for (const auto& [number, first, end] : writes) {
      const std::string& name = catalogue.files[number - 1].name;
      std::string bytes = blocks(end - first);
      if (name == "gaps" && end == 10) bytes = blocks(end - first - 1) + "tail";
      if (name == "gaps" && first == 5) std::fill(bytes.begin(), bytes.end(), 'x');
      digests.Take(static_cast<uint32_t>(number), name, first * 4254,
                   {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    }
    if (strange != 0) digests.Take(strange, "strange", 0, {});
    digests.Take(6, std::string(MANIFEST_NAME), 0, {});
    digests.Finish(tree);
    std::string names;
    for (const ManifestEntry& file : catalogue.files) {
      const auto digest = digests.Find(file.name);
      if (!digest) continue;
      names += file.name + " ";
      OpenedFile opened = OpenedFile::Open((root / file.name).native());
      EXPECT_EQ(*digest, DigestOfFile(opened, DigestKind::Blake2b, nullptr)->digest) << file.name;
    }
    return names;
  };
  EXPECT_EQ(known({{5, 0, 2}, {2, 0, 2}, {2, 5, 7}, {5, 2, 3}, {2, 3, 4}, {5, 3, 3}, {2, 7, 10}, {4, 0, 0}, {2, 2, 3}}),
            "none whole ");
  EXPECT_EQ(known({{2, 5, 10}, {2, 0, 3}, {2, 4, 5}, {3, 0, 1}, {2, 3, 4}}), "gaps late ") << "read back from the disk";
  EXPECT_EQ(known({{1, 0, 2}, {1, 1, 2}, {3, 0, 1}}), "late ") << "one has been written once more";
  EXPECT_EQ(known({{1, 0, 3}, {3, 0, 1}}), "late ") << "one is longer than it was";
  EXPECT_EQ(known({{3, 0, 1}}, 4), "") << "another name";
  EXPECT_EQ(known({{3, 0, 1}}, 7), "") << "another number";
  fs::rename(root / "whole", root / "WHOLE");
  const StagedTree folded = ListTree(Directory::Open(root.native()));
  ArrivingDigests digests(catalogue, root.native());
  digests.Take(4, "none", 0, {});
  digests.Take(5, "whole", 0, {});
  digests.Finish(folded);
  EXPECT_FALSE(digests.Find("none")) << "what is known of one may have been written into another";
}

TEST_F(ManifestOnDisk, TwoNamesThatBecomeOneAreADifference) {
  const std::string line = "file 6 0.000000000 - " + ToHex(DigestOf("c*.txt")) + " ";
  text = Sealed(line + "c*.txt\n" + line + "c?.txt\n");
  fs::remove_all(root / "a");
  fs::remove(root / "run");
  ASSERT_EQ(Differences().size(), 1u);
  EXPECT_EQ(verified.differences[0].name, "c?.txt");
}

TEST_F(ManifestOnDisk, TheSenderStopsAtAFileThatItCannotList) {
  const auto listing = [&](const std::string& path, const DigestProgress& progress) {
    return ReadEntry({path, "name"}, DigestKind::Xxh3, progress).has_value();
  };
  const std::string path = (root / "a/b").native();
  EXPECT_THROW(listing(path, [&](uint64_t) { return std::ofstream(path, std::ios::app) << "grows", true; }), Failure);
  EXPECT_THROW(listing((root / "none").native(), nullptr), Failure);
  EXPECT_THROW(listing("/dev/null", nullptr), Failure);
  EXPECT_FALSE(listing(path, [](uint64_t) { return false; }));
}

}  // namespace
}  // namespace quorl::cli
