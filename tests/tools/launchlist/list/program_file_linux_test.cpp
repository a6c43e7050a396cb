// Compares what is reported about ELF programs with the system, which must refuse every program
// that "cannot run".
#include <elf.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "tests/support/temp_directory.h"
#include "tools/launchlist/list/program_file.h"

using namespace launchlist;

namespace {

constexpr Elf64_Half kOtherMachine =
#if defined(__x86_64__)
    EM_386;
#else
    EM_ARM;
#endif

// The first bytes of this program, which is native.
Elf64_Ehdr NativeHeader()
{
    Elf64_Ehdr header = {};
    std::ifstream("/proc/self/exe", std::ios::binary)
        .read(reinterpret_cast<char*>(&header), sizeof header);
    return header;
}

template <typename Value>
std::string Bytes(const Value& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// A program with one segment, which names the loader. It crashes if it is executed.
template <typename Header, typename Segment>
struct Program
{
    Header header = {};
    Segment segment = {};
    std::string loader;

    explicit Program(const std::string& loader_path) : loader(loader_path + '\0')
    {
        const Elf64_Ehdr native = NativeHeader();
        std::memcpy(header.e_ident, native.e_ident, sizeof native.e_ident);
        header.e_type = ET_EXEC;
        header.e_machine = sizeof(Header) == sizeof(Elf64_Ehdr) ? native.e_machine : kOtherMachine;
        header.e_version = EV_CURRENT;
        header.e_phoff = sizeof(Header);
        header.e_ehsize = sizeof(Header);
        header.e_phentsize = sizeof(Segment);
        header.e_phnum = 1;
        segment.p_type = PT_INTERP;
        segment.p_offset = sizeof(Header) + sizeof(Segment);
        segment.p_filesz = static_cast<decltype(segment.p_filesz)>(loader.size());
    }

    std::string Text() const { return Bytes(header) + Bytes(segment) + loader; }
};

using Program64 = Program<Elf64_Ehdr, Elf64_Phdr>;
using Program32 = Program<Elf32_Ehdr, Elf32_Phdr>;

class ElfPrograms : public testing::Test
{
protected:
    void SetUp() override
    {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        Add("text", "text");
        Add("empty", "");
        EXPECT_EQ(chmod(Add("not_executable", "text").c_str(), 0644), 0);
        EXPECT_EQ(mkdir((m_directory / "directory").c_str(), 0755), 0);
        EXPECT_EQ(chdir(m_directory.path().c_str()), 0);
    }

    std::string Add(const std::string& name, const std::string& contents) const
    {
        std::string path = m_directory.Write(name, contents);
        EXPECT_EQ(chmod(path.c_str(), 0755), 0);
        return path;
    }

    // Examines a program. If the result is that the system refuses it, checks that it does.
    ProgramFile Examine(const std::string& contents) const
    {
        const std::string path = Add("program", contents);
        ProgramFile file = ProgramFiles().Examine(path);
        char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
        pid_t child = 0;
        const int error = posix_spawn(&child, path.c_str(), nullptr, nullptr, arguments, environ);
        if (error == 0) {
            waitpid(child, nullptr, 0);
        }
        EXPECT_TRUE(error != 0 || !file.CannotRun()) << file.message;
        m_error = error;
        return file;
    }

    template <typename Contents>
    void TestLoaders()
    {
        const struct
        {
            std::string loader;
            const char* message;
        } kTable[] = {
            {"/nowhere/loader", "/nowhere/loader\" does not exist"},
            {m_directory / "directory", "directory\" is a directory"},
            {"/dev/null", "/dev/null\" is not a regular file"},
            {m_directory / "not_executable", "not_executable\" is not executable"},
            {m_directory / "text", "text\" is not a loader for this program"},
            {m_directory / "empty", "empty\" is not a loader for this program"},
        };
        for (const auto& row : kTable) {
            const ProgramFile file = Examine(Contents(row.loader).Text());
            EXPECT_EQ(file.problem, Kind::kProgramInterpreter) << row.loader;
            EXPECT_NE(file.message.find(row.message), std::string::npos) << file.message;
        }
        EXPECT_EQ(Examine(Contents("loader").Text()).problem, Kind::kProgramRelativeUnusable);
    }

    template <typename Contents>
    void TestDamage()
    {
        const std::string whole = Contents("/bin/sh").Text();
        Contents no_segments("/bin/sh");
        no_segments.header.e_phnum = 0;
        Contents wrong_size("/bin/sh");
        wrong_size.header.e_phentsize = 8;
        Contents cut_off("/bin/sh");
        cut_off.header.e_phnum = 2;
        cut_off.loader = "";
        Contents open_end("/bin/sh");
        open_end.loader.back() = 'x';
        Contents empty("");
        const std::string texts[] = {
            whole.substr(0, 30), whole.substr(0, whole.size() - 1),
            no_segments.Text(),  wrong_size.Text(),
            cut_off.Text(),      open_end.Text(),
            empty.Text(),        Contents(std::string(PATH_MAX, '/')).Text()};
        for (const std::string& text : texts) {
            EXPECT_EQ(Examine(text).problem, Kind::kProgramFormat) << &text - texts;
        }
    }

    TempDirectory m_directory;
    mutable int m_error = 0;  // Of the last attempt to execute a program.
};

}  // namespace

TEST_F(ElfPrograms, NeedTheirLoader)
{
    TestLoaders<Program64>();
    TestLoaders<Program32>();
}

TEST_F(ElfPrograms, NeedALoaderForTheirOwnMachine)
{
    EXPECT_EQ(Examine(Program32("/proc/self/exe").Text()).problem, Kind::kProgramInterpreter);
}

TEST_F(ElfPrograms, AreRefusedIfDamaged)
{
    TestDamage<Program64>();
    TestDamage<Program32>();
}

TEST_F(ElfPrograms, RunOtherwise)
{
    Program64 program("");
    program.segment.p_type = PT_NULL;
    EXPECT_FALSE(Examine(program.Text()).problem);
    EXPECT_EQ(m_error, 0);
    EXPECT_FALSE(ProgramFiles().Examine("/proc/self/exe").problem);
}

TEST_F(ElfPrograms, AreForeignIfForAnotherMachine)
{
    Program64 program("/nowhere/loader");
    program.header.e_machine = EM_S390;
    EXPECT_EQ(Examine(program.Text()).problem, Kind::kProgramForeign);
}
