// log_stress PROOF DIRECTORY COUNT: runs one of the long proofs (proofs.h) with the given count in
// a new directory below DIRECTORY. Exits with status 0 if the proof held.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/qv7log/proofs/proofs.h"

namespace {

struct Proof
{
    const char* name;
    std::string (*run)(const std::string& directory, int count);
};

constexpr Proof kProofs[] = {
    {"forks", ForksWhileRotating},
    {"processes", ProcessesRotating},
    {"full", DiskFull},
    {"removed", RemovedUnderLoad},
    {"killed", KilledWhileRotating},
    {"inherited", InheritedDescriptorDisturbed},
    {"unmovable", OldFileUnmovable},
    {"limit", SizeLimitReached},
    {"locale", ForksInSetlocale},
    {"cancelled", ThreadsCancelled},
    {"umasks", EveryMask},
    {"same", SameLogTwice},
    {"handlers", ForkHandlersRegisteredEarlier},
    {"namespaces", ChildrenInPidNamespaces},
};

int Run(const Proof& proof, const std::string& parent, int count)
{
    std::string directory = parent + "/log-XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) {
        std::perror(directory.c_str());
        return 1;
    }
    const auto start = std::chrono::steady_clock::now();
    const std::string wrong = proof.run(directory, count);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::printf("%s %d: %s (%.1f s)\n", proof.name, count, wrong.empty() ? "held" : "FAILED",
                time.count());
    if (!wrong.empty()) {
        std::printf("%s\nThe files are in %s\n", wrong.c_str(), directory.c_str());
        return 1;
    }
    std::filesystem::remove_all(directory);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    for (const Proof& proof : kProofs) {
        if (argc == 4 && std::string(argv[1]) == proof.name) {
            return Run(proof, argv[2], std::atoi(argv[3]));
        }
    }
    std::fputs("usage: log_stress PROOF DIRECTORY COUNT, where PROOF is one of", stderr);
    for (const Proof& proof : kProofs) {
        std::fprintf(stderr, " %s", proof.name);
    }
    std::fputs("\n", stderr);
    return 2;
}
