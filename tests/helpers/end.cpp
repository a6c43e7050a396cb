// Reports its start and ends immediately: "end exit CODE" or "end signal NUMBER".
#include <signal.h>

#include <cstdlib>
#include <string>

#include "tests/helpers/start_report.h"

int main(int argc, char** argv)
{
    ReportStart(argc, argv);
    const std::string how = argc == 3 ? argv[1] : "";
    if (how == "exit") {
        return std::atoi(argv[2]);
    }
    if (how == "signal") {
        raise(std::atoi(argv[2]));
    }
    std::abort();
}
