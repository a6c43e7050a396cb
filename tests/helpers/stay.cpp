// Reports its start and stays until a signal ends it.
#include <unistd.h>

#include "tests/helpers/start_report.h"

int main(int argc, char** argv)
{
    ReportStart(argc, argv);
    for (;;) {
        pause();
    }
}
