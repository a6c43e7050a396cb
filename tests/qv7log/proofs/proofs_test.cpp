#include "tests/qv7log/proofs/proofs.h"

#include <gtest/gtest.h>

#include "tests/qv7log/read_log.h"

namespace {

TEST(Log, LosesNothingWhileChildrenAreForkedInRotations)
{
    TempFolder folder;
    EXPECT_EQ(ForksWhileRotating(folder.path(), 2000), "");
}

TEST(Log, LosesNothingWhenEightProcessesWrite)
{
    TempFolder folder;
    EXPECT_EQ(ProcessesRotating(folder.path(), 2000), "");
}

TEST(Log, LosesNothingWhenItIsRemoved)
{
    TempFolder folder;
    EXPECT_EQ(RemovedUnderLoad(folder.path(), 200), "");
}

TEST(Log, LosesNoRecordCompletedBeforeAKill)
{
    TempFolder folder;
    EXPECT_EQ(KilledWhileRotating(folder.path(), 30), "");
}

}  // namespace
