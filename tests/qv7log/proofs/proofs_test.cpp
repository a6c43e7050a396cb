#include "tests/qv7log/proofs/proofs.h"

#include <gtest/gtest.h>

#include "tests/qv7log/read_log.h"

namespace {

// With sanitizers or counters, a tenth of each count.
#ifdef KESTRANE_SHORT_PROOFS
constexpr int kShare = 10;
#else
constexpr int kShare = 1;
#endif

TEST(Log, LosesNothingWhileChildrenAreForkedInRotations)
{
    TempDirectory directory;
    EXPECT_EQ(ForksWhileRotating(directory.path(), 2000 / kShare), "");
}

TEST(Log, LosesNothingWhenEightProcessesWrite)
{
    TempDirectory directory;
    EXPECT_EQ(ProcessesRotating(directory.path(), 2000 / kShare), "");
}

TEST(Log, LosesNothingWhenItIsRemoved)
{
    TempDirectory directory;
    EXPECT_EQ(RemovedUnderLoad(directory.path(), 200 / kShare), "");
}

TEST(Log, LosesNoRecordCompletedBeforeAKill)
{
    TempDirectory directory;
    EXPECT_EQ(KilledWhileRotating(directory.path(), 30 / kShare), "");
}

TEST(Log, LosesNothingWhenProgramsDisturbTheInheritedDescriptor)
{
    TempDirectory directory;
    EXPECT_EQ(InheritedDescriptorDisturbed(directory.path(), 200 / kShare), "");
}

TEST(Log, LosesNothingWhenAnOldFileCannotBeRenamed)
{
    TempDirectory directory;
    EXPECT_EQ(OldFileUnmovable(directory.path(), 500 / kShare), "");
}

TEST(Log, KillsNoProcessAtTheFileSizeLimit)
{
    TempDirectory directory;
    EXPECT_EQ(SizeLimitReached(directory.path(), 5), "");
}

TEST(Log, HangsNoChildForkedInSetlocale)
{
    TempDirectory directory;
    EXPECT_EQ(ForksInSetlocale(directory.path(), 200 / kShare), "");
}

TEST(Log, IsRotatedAfterCancellations)
{
    TempDirectory directory;
    EXPECT_EQ(ThreadsCancelled(directory.path(), 200 / kShare), "");
}

TEST(Log, StartsWithAnyMask)
{
    TempDirectory directory;
    EXPECT_EQ(EveryMask(directory.path(), 13 * kShare), "");
}

TEST(Log, KeepsTheOrderOfRecordsOfTwoLogsOfOneFile)
{
    TempDirectory directory;
    EXPECT_EQ(SameLogTwice(directory.path(), 5000 / kShare), "");
}

TEST(Log, KnowsTheProcessIdInEarlierForkHandlers)
{
    TempDirectory directory;
    EXPECT_EQ(ForkHandlersRegisteredEarlier(directory.path(), 100 / kShare), "");
}

TEST(Log, IsRotatedByAChildWithTheProcessIdOfItsParent)
{
    TempDirectory directory;
    EXPECT_EQ(ChildrenInPidNamespaces(directory.path(), 20 / kShare), "");
}

}  // namespace
