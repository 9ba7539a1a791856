// A transfer as the receive loop sees it: announcement, stream, empty directories, refusals.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct ReceiveLoopTest : BothProfiles {};
INSTANTIATE_TEST_SUITE_P(Profiles, ReceiveLoopTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(ReceiveLoopTest, AWholeStreamCompletesAndIsOnTheDiskBeforeTheHostIsTold) {
  bool wholeWhenTold = false;
  window = pc.MakeWindow([&](uint32_t message, uintptr_t wParam, intptr_t lParam) {
    if (message == WM_TRANS_STATUS && wParam == 0 && lParam == 1)
      wholeWhenTold = pc.Disk().Read("C:\\in\\sub\\three.bin") == files[2].content;
  });
  Listen(GetParam());
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{"CMD_CLIENT platform=1"});
  AddThreeFiles();
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_ANSWER missing blocks=0"));
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 0 1"}));
  EXPECT_EQ(NamesTold(),
            (Lines{"\\one.bin", "\\two.bin", "\\two.bin", "\\sub\\three.bin", "\\sub\\three.bin", "\\sub\\three.bin"}));
  EXPECT_TRUE(wholeWhenTold);
  ExpectFilesAt("C:\\in");
  EXPECT_TRUE(HasDebugLine("\n-------------Receive"));
  EXPECT_TRUE(HasDebugLine("\nQuorl----transmission over---------WriteThread\n"));
  const ReceiveState state = client.GetState();
  EXPECT_EQ(state.phase, ReceivePhase::Complete);
  EXPECT_EQ(state.blocksStored, 6u);
  EXPECT_EQ(state.currentName, "\\sub\\three.bin");
  EXPECT_EQ(state.targetDir, "C:\\in");
}

TEST_P(ReceiveLoopTest, CopiesOfTheAnnouncementChangeNothingWithinHalfASecond) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendData(1, 0);
  SendData(2, 0);
  Announce();
  EXPECT_EQ(Told(), Lines{"1039 3 6"});
  SendData(2, 1);
  for (uint32_t block = 0; block < 3; ++block) SendData(3, block);
  ToGroup(Finish{0});
  world.RunFor(1s);
  ExpectFilesAt("C:\\in");
}

/// The same numbers under another name, with a file of the first transfer still open.
struct SecondAnnouncement : ScriptedSender, testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Ways, SecondAnnouncement, testing::Range(0, 3));

TEST_P(SecondAnnouncement, ALaterOrDifferentOneOrOneAfterAStopBeginsAnewWithNoFileOpenAndNoMaster) {
  Listen(Profile::Classic);
  AddFile("\\a.bin", 3 * BLOCK_SIZE);
  Announce();
  SendData(1, 0);
  SendData(1, 1);
  ToReceiver(Master{1});
  world.RunFor(20ms);
  files.clear();
  AddFile("\\b.bin", 3 * BLOCK_SIZE);
  const std::string target = GetParam() == 0 ? "C:\\other" : "C:\\in";
  if (GetParam() == 1) world.RunFor(501ms);
  if (GetParam() == 2) ToGroup(Stop{});
  Announce(target);
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Receiving);
  EXPECT_EQ(client.GetState().blocksStored, 0u);
  TakeReplies();
  SendStream({{1, 1}});
  ToGroup(Finish{0});
  world.RunFor(1s);
  SendResend(1, 1);
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_ANSWER missing blocks=1"});
  Repair();
  EXPECT_EQ(Told().back(), "1040 0 1");
  ExpectFilesAt(target);
}

TEST_P(ReceiveLoopTest, ARefusedTargetEndsTheLoopAndStartsNothing) {
  for (const uint32_t status : {1002u, 112u}) {
    Listen(GetParam());
    AddThreeFiles();
    pc.Disk().SetDriveType(status == 1002 ? DriveType::Remote : DriveType::Fixed);
    pc.Disk().SetFreeBytes(6 * BLOCK_SIZE - 1);
    Announce();
    world.RunFor(1s);
    EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=" + std::to_string(status)));
    EXPECT_EQ(Told().back(), "1040 " + std::to_string(status) + " 0");
    EXPECT_EQ(pc.Messages().back().at - LatestReplyAt(), 100ms);
    EXPECT_EQ(pc.RunningThreads(), 1u);  // the writer, until teardown
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
    DeInit();
    files.clear();
  }
}

TEST_P(ReceiveLoopTest, EmptyDirectoriesAreMadeUpToOneThatIsTooLong) {
  Listen(GetParam());
  Announce("C:\\in");
  const std::string longest(260 - std::string("C:\\in").size() - 1, 'x');
  std::vector<NameField> names;
  for (const std::string& name : {std::string("\\a\\b"), "\\" + longest, std::string("\\..\\out"), std::string("\\c"),
                                  "\\x" + longest, std::string("\\never")})
    names.push_back(NameField::From(name));
  Send(BuildEmptyDir(names), DATA_GROUP);
  world.RunFor(200ms);
  EXPECT_EQ(pc.Disk().List("C:\\"), (Lines{"in", "in\\a", "in\\a\\b", "in\\c", "in\\" + longest}));
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=1007"));
  EXPECT_EQ(Told().back(), "1040 1007 0");
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{});
}

TEST_P(ReceiveLoopTest, WithARootOfItsOwnNothingIsWrittenElsewhere) {
  client.SetReceiveRoot("C:\\home\\box");
  Listen(GetParam());
  AddThreeFiles();
  SendData(1, 0);  // nothing announced: there is no target yet
  Send(BuildEmptyDir(std::vector{NameField::From("\\dir")}), DATA_GROUP);
  Announce("C:\\windows");
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_EQ(client.GetState().targetDir, "C:\\home\\box");
  ExpectFilesAt("C:\\home\\box");
  EXPECT_EQ(pc.Disk().List("C:\\").size(), 6u) << "two directories of the root, one of a file, three files";
}

}  // namespace
}  // namespace quorl
