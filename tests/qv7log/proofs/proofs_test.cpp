#include "tests/qv7log/proofs/proofs.h"

#include <gtest/gtest.h>

#include "tests/qv7log/read_log.h"

namespace {

TEST(Log, LosesNothingWhileChildrenAreForkedInRotations)
{
    TempDirectory folder;
    EXPECT_EQ(ForksWhileRotating(folder.path(), 2000), "");
}

TEST(Log, LosesNothingWhenEightProcessesWrite)
{
    TempDirectory folder;
    EXPECT_EQ(ProcessesRotating(folder.path(), 2000), "");
}

TEST(Log, LosesNothingWhenItIsRemoved)
{
    TempDirectory folder;
    EXPECT_EQ(RemovedUnderLoad(folder.path(), 200), "");
}

TEST(Log, LosesNoRecordCompletedBeforeAKill)
{
    TempDirectory folder;
    EXPECT_EQ(KilledWhileRotating(folder.path(), 30), "");
}

TEST(Log, LosesNothingWhenProgramsDisturbTheInheritedDescriptor)
{
    TempDirectory folder;
    EXPECT_EQ(InheritedDescriptorDisturbed(folder.path(), 200), "");
}

TEST(Log, LosesNothingWhenAnOldFileCannotBeRenamed)
{
    TempDirectory folder;
    EXPECT_EQ(OldFileUnmovable(folder.path(), 500), "");
}

TEST(Log, KillsNoProcessAtTheFileSizeLimit)
{
    TempDirectory folder;
    EXPECT_EQ(SizeLimitReached(folder.path(), 5), "");
}

TEST(Log, HangsNoChildForkedInSetlocale)
{
    TempDirectory folder;
    EXPECT_EQ(ForksInSetlocale(folder.path(), 200), "");
}

TEST(Log, IsRotatedAfterCancellations)
{
    TempDirectory folder;
    EXPECT_EQ(ThreadsCancelled(folder.path(), 200), "");
}

TEST(Log, StartsWithAnyMask)
{
    TempDirectory folder;
    EXPECT_EQ(EveryMask(folder.path(), 13), "");
}

TEST(Log, KeepsTheOrderOfRecordsOfTwoLogsOfOneFile)
{
    TempDirectory folder;
    EXPECT_EQ(SameLogTwice(folder.path(), 5000), "");
}

TEST(Log, KnowsTheProcessIdInEarlierForkHandlers)
{
    TempDirectory folder;
    EXPECT_EQ(ForkHandlersRegisteredEarlier(folder.path(), 100), "");
}

TEST(Log, IsRotatedByAChildWithTheProcessIdOfItsParent)
{
    TempDirectory folder;
    EXPECT_EQ(ChildrenInPidNamespaces(folder.path(), 20), "");
}

}  // namespace
