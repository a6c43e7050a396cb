// The former name of TempDirectory, for the tests that still use it.
#pragma once

#include "tests/support/temp_directory.h"

using TempFolder = TempDirectory;
