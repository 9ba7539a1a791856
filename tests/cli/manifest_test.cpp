// The manifest: its text, what is made of hostile text, and what it vouches for.
#include "cli/manifest.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "cli/manifest_build.h"
#include "cli/manifest_verify.h"
#include "cli/outcome.h"

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
  manifest.files = {{"z\n\x01 \xff", 0, DigestOf("z"), -5, 0, false},
                    {"a/b c", uint64_t{1} << 63, DigestOf("a"), 1700000000, 999999999, true}};
  manifest.emptyDirectories = {"a/empty"};
  for (const ManifestKey* key : {static_cast<const ManifestKey*>(nullptr), &KEY}) {
    const auto parsed = ParseManifest(FormatManifest(manifest, key), key);
    ASSERT_TRUE(std::holds_alternative<ReadManifest>(parsed)) << std::get<std::string>(parsed);
    const auto& [read, seal] = std::get<ReadManifest>(parsed);
    EXPECT_EQ(seal, key ? Seal::Keyed : Seal::Plain);
    EXPECT_EQ(read.onlyFor, manifest.onlyFor);
    EXPECT_EQ(read.emptyDirectories, manifest.emptyDirectories);
    ASSERT_EQ(read.files.size(), 2u);
    EXPECT_EQ(read.files[0].name, "a/b c") << "in the order of names";
    EXPECT_EQ(read.files[0].size, uint64_t{1} << 63);
    EXPECT_EQ(read.files[0].nanoseconds, 999999999u);
    EXPECT_TRUE(read.files[0].executable);
    EXPECT_EQ(read.files[1].name, "z\n\x01 \xff");
    EXPECT_EQ(read.files[1].seconds, -5);
    EXPECT_EQ(read.files[1].digest, DigestOf("z"));
  }
}

TEST(Manifest, HasOneTextAndNoOther) {
  EXPECT_EQ(WhyNot(Sealed("")), "");
  EXPECT_EQ(WhyNot(Sealed("only 127.0.0.1\n" + FileLine("a") + FileLine("b") + "dir c\n")), "");
  const std::string good = FileLine("a");
  const auto changed = [&](const std::string& from, const std::string& to) {
    std::string line = good;
    return line.replace(line.find(from), from.size(), to);
  };
  const std::string wrong[] = {
      // Names that lead elsewhere, or could be written in two ways.
      FileLine(""),
      FileLine("/a"),
      FileLine("a/"),
      FileLine("a//b"),
      FileLine(".."),
      FileLine("a/../b"),
      FileLine("."),
      FileLine("a\\x5cb"),
      FileLine("\\x41"),
      FileLine("a\\x0A"),
      FileLine("a\\x0"),
      FileLine("a\\"),
      FileLine("a\tb"),
      FileLine("\\x00"),
      FileLine(std::string(520, 'a')),
      "dir ../a\n",
      "dir \n",
      // Order and number.
      FileLine("b") + FileLine("a"),
      FileLine("a") + FileLine("a"),
      "dir a\n" + FileLine("b"),
      "dir a\ndir a\n",
      FileLine("a") + "only 127.0.0.1\n",
      "only 127.0.0.1\nonly 127.0.0.1\n",
      // Fields.
      changed("file 4", "file 04"),
      changed("file 4", "file -4"),
      changed("file 4", "file 18446744073709551616"),
      changed("file 4", "file  4"),
      changed("1700000000.", "+1700000000."),
      changed("1700000000.", "9999999999999."),
      changed(".000000012", ".12"),
      changed(".000000012", ".1000000000"),
      changed(" x ", " y "),
      changed("aaa", "AAA"),
      changed("aaa", ""),
      changed("file", "File"),
      "only\n",
      "only 127.0.0.1 \n",
      "only 127.0.0.01\n",
      "only all\n",
      "\n",
      "unknown\n",
      "file\n",
      std::string("\0", 1) + "\n",
  };
  for (const std::string& lines : wrong) EXPECT_EQ(WhyNot(Sealed(lines)), "the manifest is not well-formed") << lines;
  const std::string text = Sealed(good);
  for (size_t length = 0; length < text.size(); ++length) EXPECT_NE(WhyNot(text.substr(0, length)), "") << length;
  EXPECT_NE(WhyNot(text + "\n"), "");
  EXPECT_NE(WhyNot(Sealed(good + std::string(MANIFEST_LIMIT, 'x') + "\n")), "");
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

class ManifestOnDisk : public ::testing::Test {
 protected:
  ManifestOnDisk() {
    std::string pattern = (fs::temp_directory_path() / "quorl-test-XXXXXX").native();
    root = fs::canonical(mkdtemp(pattern.data()));
    for (const char* name : {"a/b", "c*.txt", "run"}) Write(name, name);
    fs::permissions(root / "run", fs::perms::owner_all);
    const timespec times[] = {{1, 0}, {1'000'000'000, 5}};
    utimensat(AT_FDCWD, (root / "run").c_str(), times, 0);
    sources.emptyDirectories = {"empty"};
    for (const char* name : {"a/b", "c*.txt", "run"}) sources.files.push_back({(root / name).native(), name});
    text = *BuildManifest(sources, nullptr, nullptr);
    fs::rename(root / "c*.txt", root / "c.txt");
    fs::permissions(root / "run", fs::perms::owner_read | fs::perms::group_read);
    utimensat(AT_FDCWD, (root / "run").c_str(), nullptr, 0);
  }
  ~ManifestOnDisk() override { fs::remove_all(root); }

  void Write(const std::string& name, const std::string& content) const {
    fs::create_directories((root / name).parent_path());
    std::ofstream(root / name) << content;
  }

  /// The differences, "name: why".
  std::vector<std::string> Differences() {
    Write(".quorl-manifest", text);
    const FileHandle directory(open(root.c_str(), O_RDONLY | O_DIRECTORY));
    const StagedTree tree = ListTree(directory.Get());
    const auto found = FindManifest(directory.Get(), tree, nullptr);
    verified = *VerifyTree(directory.Get(), tree, std::get<ReadManifest>(*found).manifest, nullptr);
    std::vector<std::string> texts;
    for (const auto& [name, why] : verified.differences) texts.push_back(name + ": " + why);
    return texts;
  }

  fs::path root;
  ManifestSources sources;
  std::string text;
  Verification verified;
};

TEST_F(ManifestOnDisk, WhatArrivedAsItWasSentGetsItsTimeAndMode) {
  EXPECT_EQ(Differences(), std::vector<std::string>{});
  EXPECT_EQ(verified.verified.files.size(), 3u);
  EXPECT_EQ(verified.verified.emptyDirectories, std::vector<std::string>{"empty"});
  struct stat status {};
  ASSERT_EQ(stat((root / "run").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0550u);
  EXPECT_EQ(status.st_mtim.tv_sec, 1'000'000'000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 5);
}

TEST_F(ManifestOnDisk, EveryKindOfDifferenceIsNamed) {
  Write("a/b", "a/B");
  Write("c.txt", "longer than it was");
  fs::remove(root / "run");
  Write("extra", "x");
  fs::create_symlink("extra", root / "link");
  EXPECT_EQ(Differences(),
            (std::vector<std::string>{"a/b: has another content", "c*.txt: has another size", "run: is missing",
                                      "extra: is not in the manifest", "link: is neither a file nor a directory"}));
  EXPECT_TRUE(verified.verified.files.empty());
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
    ManifestSources one;
    one.files.push_back({path, "name"});
    return BuildManifest(one, nullptr, progress);
  };
  const std::string path = (root / "a/b").native();
  EXPECT_THROW(listing(path, [&](uint64_t) { return std::ofstream(path, std::ios::app) << "grows", true; }), Failure);
  EXPECT_THROW(listing((root / "none").native(), nullptr), Failure);
  EXPECT_THROW(listing("/dev/null", nullptr), Failure);
  EXPECT_EQ(listing(path, [](uint64_t) { return false; }), std::nullopt);
  sources.files.push_back(sources.files[0]);
  EXPECT_THROW(BuildManifest(sources, nullptr, nullptr), Failure) << "one name twice";
}

TEST_F(ManifestOnDisk, KeyFilesAreNeitherShortNorStrange) {
  Write("key", std::string(16, 'k'));
  EXPECT_TRUE(IsSame(ReadKeyFile((root / "key").native()).bytes, DigestOf(std::string(16, 'k'))));
  Write("short", std::string(15, 'k'));
  Write("long", std::string((1 << 20) + 1, 'k'));
  for (const char* name : {"short", "long", "none", "a"}) EXPECT_THROW(ReadKeyFile((root / name).native()), Failure);
  const ManifestFile file("text");
  EXPECT_EQ(fs::file_size(file.Directory() + "/.quorl-manifest"), 4u);
}

}  // namespace
}  // namespace quorl::cli
