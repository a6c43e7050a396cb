#include "tests/qv7log/proofs/proofs.h"

#include <gtest/gtest.h>

#include "tests/qv7log/read_log.h"

namespace {

TEST(Log, LosesNothingWhileChildrenAreForkedInRotations)
{
    TempDirectory directory;
    EXPECT_EQ(ForksWhileRotating(directory.path(), 2000), "");
}

TEST(Log, LosesNothingWhenEightProcessesWrite)
{
    TempDirectory directory;
    EXPECT_EQ(ProcessesRotating(directory.path(), 2000), "");
}

TEST(Log, LosesNothingWhenItIsRemoved)
{
    TempDirectory directory;
    EXPECT_EQ(RemovedUnderLoad(directory.path(), 200), "");
}

TEST(Log, LosesNoRecordCompletedBeforeAKill)
{
    TempDirectory directory;
    EXPECT_EQ(KilledWhileRotating(directory.path(), 30), "");
}

TEST(Log, LosesNothingWhenProgramsDisturbTheInheritedDescriptor)
{
    TempDirectory directory;
    EXPECT_EQ(InheritedDescriptorDisturbed(directory.path(), 200), "");
}

TEST(Log, LosesNothingWhenAnOldFileCannotBeRenamed)
{
    TempDirectory directory;
    EXPECT_EQ(OldFileUnmovable(directory.path(), 500), "");
}

TEST(Log, KillsNoProcessAtTheFileSizeLimit)
{
    TempDirectory directory;
    EXPECT_EQ(SizeLimitReached(directory.path(), 5), "");
}

TEST(Log, HangsNoChildForkedInSetlocale)
{
    TempDirectory directory;
    EXPECT_EQ(ForksInSetlocale(directory.path(), 200), "");
}

TEST(Log, IsRotatedAfterCancellations)
{
    TempDirectory directory;
    EXPECT_EQ(ThreadsCancelled(directory.path(), 200), "");
}

TEST(Log, StartsWithAnyMask)
{
    TempDirectory directory;
    EXPECT_EQ(EveryMask(directory.path(), 13), "");
}

TEST(Log, KeepsTheOrderOfRecordsOfTwoLogsOfOneFile)
{
    TempDirectory directory;
    EXPECT_EQ(SameLogTwice(directory.path(), 5000), "");
}

TEST(Log, KnowsTheProcessIdInEarlierForkHandlers)
{
    TempDirectory directory;
    EXPECT_EQ(ForkHandlersRegisteredEarlier(directory.path(), 100), "");
}

TEST(Log, IsRotatedByAChildWithTheProcessIdOfItsParent)
{
    TempDirectory directory;
    EXPECT_EQ(ChildrenInPidNamespaces(directory.path(), 20), "");
}

}  // namespace
