// Lets a helper program report its start to a test.
#pragma once

// Appends one line to the file that KESTRANE_TEST_STARTS names: the process id, the monotonic time
// in nanoseconds, and every argument as "LENGTH:HEX", the program's own name first.
void ReportStart(int argc, char** argv);
