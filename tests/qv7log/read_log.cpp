#include "tests/qv7log/read_log.h"

#include <ctype.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <vector>

void Log(ILog* log, LOGLEVEL level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log->LogV(level, format, arguments);
    va_end(arguments);
}

ILog* KeepReachable(ILog* log)
{
    static auto* const logs = new std::vector<ILog*>;
    logs->push_back(log);
    return log;
}

ILog* StartLog(const std::string& path, LOGLEVEL threshold)
{
    ILog* log = nullptr;
    if (InitLogger(path.c_str()) == 0) {
        GetLogger(LOGKIND_FILE, "test", threshold, &log);
    }
    return KeepReachable(log);
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

bool Exists(const std::string& path)
{
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

void ReadInto(Content& content, const std::string& path)
{
    const std::string text = ReadFile(path);
    std::string_view rest = text;
    qv7log::Entry entry;
    while (qv7log::NextEntry(rest, entry)) {
        if (entry.is_record) {
            content.records.push_back(entry.record);
        } else {
            content.others.emplace_back(entry.raw);
        }
    }
}

std::vector<std::string> OldFiles(const std::string& path)
{
    const std::string prefix = path + ".";
    std::map<int, std::string, std::greater<>> files;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
        const std::string file = entry.path().string();
        if (file.compare(0, prefix.size(), prefix) == 0 && isdigit(file[prefix.size()])) {
            files[std::stoi(file.substr(prefix.size()))] = file;
        }
    }
    std::vector<std::string> names;
    for (const auto& [number, file] : files) {
        names.push_back(file);
    }
    return names;
}

Content ReadLog(const std::string& path)
{
    Content content;
    for (const std::string& file : OldFiles(path)) {
        ReadInto(content, file);
    }
    ReadInto(content, path);
    return content;
}

std::vector<std::string> Texts(const std::string& path)
{
    const Content content = ReadLog(path);
    std::vector<std::string> texts;
    for (const qv7log::Record& record : content.records) {
        texts.push_back(record.text);
    }
    for (const std::string& raw : content.others) {
        texts.push_back("!" + raw);
    }
    return texts;
}
