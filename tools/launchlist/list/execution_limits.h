// What the system accepts when a program is executed.
#pragma once

#include <cstddef>
#include <string>

namespace launchlist {

// The longest single argument in bytes, without its NUL; 0 if only the sum is limited.
std::size_t MaxArgumentLength();

// How many bytes the system accepts for arguments and environment together, with the stack limit of
// this process; 0 if unknown.
std::size_t MaxArgumentBytes();

// How many of these bytes the environment of this process takes; 0 if unknown.
std::size_t EnvironmentBytes();

// The maximum number of scripts in a chain in which each is the interpreter of the one before. The
// program itself counts.
int MaxScriptDepth();

// How many bytes of a script's first line the system reads.
std::size_t MaxInterpreterLine();

// Where the system lists the interpreters that are registered for other formats; "" if it has none.
const char* RegistrationDirectory();

// What the first bytes of a program say about it.
enum class BinaryFormat
{
    kNone,     // Not a binary format of this system.
    kNative,   // Can be executed, as far as its header says.
    kForeign,  // Built for another processor.
    kDamaged   // The right format, but not executable: a library or object file, or cut off.
};

// `head` holds the first bytes of an open file. For a native program, `loader` receives the path of
// the dynamic loader that it asks for, or is unchanged if it asks for none.
BinaryFormat FormatOf(const std::string& head, int descriptor, std::string& loader);

// Whether a file that starts with `loader_head` can be the loader of a native program that starts
// with `head`.
bool CanLoad(const std::string& loader_head, const std::string& head);

}  // namespace launchlist
