#include "tests/qv7log/proofs.h"

#include <gtest/gtest.h>

#include "tests/qv7log/read_log.h"

namespace {

TEST(Log, LosesNothingWhileChildrenAreForkedInRotations)
{
    TempFolder folder;
    EXPECT_EQ(ForksWhileRotating(folder.path(), 2000), "");
}

TEST(Log, LosesNothingOfEightProcesses)
{
    TempFolder folder;
    EXPECT_EQ(ProcessesRotating(folder.path(), 2000), "");
}

TEST(Log, LosesNothingWhenItIsRemoved)
{
    TempFolder folder;
    EXPECT_EQ(RemovedUnderLoad(folder.path(), 200), "");
}

TEST(Log, LosesNothingThatWasWrittenBeforeAKill)
{
    TempFolder folder;
    EXPECT_EQ(KilledWhileRotating(folder.path(), 30), "");
}

TEST(Record, IsReadBackExactlyWhateverItHolds)
{
    EXPECT_EQ(EscapingRoundTrips("", 100000), "");
}

}  // namespace
