#include <pthread.h>
#include <sys/stat.h>

#include <random>

#include "qv7log/limits.h"
#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

ILog* g_log = nullptr;

// Nothing here has a destructor: glibc runs destructors for a cancelled thread, but cannot run
// those of libc++.
void* LogUntilCancelled(void* text)
{
    for (;;) {
        Log(g_log, LOGLEVEL_ERROR, "%s", static_cast<const char*>(text));
        pthread_testcancel();
    }
}

}  // namespace

std::string ThreadsCancelled(const std::string& directory, int threads)
{
    const std::string path = directory + "/log";
    g_log = StartLog(path);
    std::string text(static_cast<std::size_t>(qv7log::kRotateSize), '.');
    std::mt19937 random(5);
    for (int i = 0; i < threads; ++i) {
        pthread_t thread;
        if (pthread_create(&thread, nullptr, LogUntilCancelled, text.data()) != 0) {
            return "no thread\n";
        }
        std::this_thread::sleep_for(microseconds(random() % 1000));
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
        if (i % 100 == 0) {
            for (const std::string& file : OldFiles(path)) {
                unlink(file.c_str());
            }
        }
        LogNumber(g_log, 0, i);
        struct stat status = {};
        if (stat(path.c_str(), &status) != 0 || status.st_size > 4 * qv7log::kRotateSize) {
            return "nobody rotates after thread " + std::to_string(i) + "\n";
        }
    }
    Content content;
    ReadInto(content, path);
    return CheckWhole(content);
}
