// Replaces its whole command line by one text, reports its start and stays: "title TEXT". If TEXT
// is longer than the command line, the rest is cut off.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/helpers/start_report.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        return 2;
    }
    // The arguments are adjacent, so they can be replaced together.
    char* const begin = argv[0];
    char* const end = argv[1] + std::strlen(argv[1]) + 1;
    const std::string title = argv[1];
    std::string program = argv[0];
    const auto size = static_cast<std::size_t>(end - begin);
    std::fill(begin, end, '\0');
    std::copy_n(title.begin(), std::min(title.size(), size - 2), begin);
    // On Linux, a text without a NUL in its last place is shown up to the first NUL, without the
    // rest.
    end[-1] = 'x';
    std::string text = title;
    char* report[] = {program.data(), text.data()};
    ReportStart(2, report);
    for (;;) {
        pause();
    }
}
