#include "tools/launchlist/output/json_writer.h"
#include "tools/launchlist/output/status_formats.h"

namespace launchlist {

namespace {

constexpr int kFormatVersion = 1;

const char* NameOf(MatchedBy by)
{
    return by == MatchedBy::kArguments     ? "arguments"
           : by == MatchedBy::kInterpreter ? "interpreter"
                                           : "executable";
}

const char* NameOf(LeftoverKind kind)
{
    switch (kind) {
        case LeftoverKind::kSupervisor:
            return "supervisor";
        case LeftoverKind::kHelper:
            return "helper";
        case LeftoverKind::kHasLog:
            return "has-log";
        case LeftoverKind::kSameCommand:
            break;
    }
    return "same-command";
}

class StatusWriter
{
public:
    explicit StatusWriter(const std::function<void(std::string_view)>& write) : m_json(write) {}

    void Write(const Status& status)
    {
        m_json.BeginObject();
        m_json.Count("format_version", kFormatVersion);
        m_json.Text("time", FormatTimeStamp(status.time));
        m_json.BeginArray("launchers");
        for (const LauncherStatus& launcher : status.launchers) {
            WriteLauncher(launcher);
        }
        m_json.EndArray();
        m_json.BeginArray("leftovers");
        for (const Leftover& leftover : status.leftovers) {
            WriteLeftover(leftover);
        }
        m_json.EndArray();
        m_json.BeginArray("unexamined");
        for (const pid_t process : status.unexamined) {
            m_json.Count(nullptr, process);
        }
        m_json.EndArray();
        m_json.EndObject();
        m_json.Finish();
    }

private:
    void TextOrNull(const char* key, const std::string& text)
    {
        text.empty() ? m_json.Null(key) : m_json.Text(key, text);
    }

    void WriteProcess(const ProcessStatus& process)
    {
        m_json.Count("pid", process.id);
        m_json.Count("parent", process.parent);
        m_json.Text("start", FormatTimeStamp(process.start));
        m_json.Count("memory_bytes", process.memory);
        m_json.Count("cpu_ms", process.cpu);
        if (process.cpu_percent) {
            m_json.Number("cpu_percent", *process.cpu_percent);
        } else {
            m_json.Null("cpu_percent");
        }
    }

    void WriteLauncher(const LauncherStatus& launcher)
    {
        m_json.BeginObject();
        WriteProcess(launcher.process);
        m_json.Text("executable", launcher.executable);
        m_json.Bool("executable_is_deleted", launcher.is_deleted);
        m_json.Text("application", launcher.application);
        m_json.Text("list", launcher.list);
        TextOrNull("list_error", launcher.list_error);
        m_json.Bool("list_may_have_changed", launcher.list_may_have_changed);
        m_json.Text("log", launcher.log);
        TextOrNull("log_error", launcher.log_error);
        m_json.Bool("log_has_starts", launcher.log_has_starts);
        m_json.Bool("log_may_lack_records", launcher.log_may_lack_records);
        m_json.Count("running", launcher.running);
        m_json.Count("expected", launcher.expected);
        m_json.BeginArray("items");
        for (const ItemStatus& item : launcher.items) {
            WriteItem(item);
        }
        m_json.EndArray();
        m_json.BeginArray("groups");
        for (const ItemGroup& group : launcher.groups) {
            m_json.BeginObject();
            m_json.Count("running", group.running);
            m_json.BeginArray("items");
            for (const int item : group.items) {
                m_json.Count(nullptr, item);
            }
            m_json.EndArray();
            m_json.EndObject();
        }
        m_json.EndArray();
        m_json.BeginArray("further_supervisors");
        for (const SupervisorStatus& supervisor : launcher.supervisors) {
            m_json.BeginObject();
            WriteProcess(supervisor.process);
            m_json.Count("item", supervisor.item);
            m_json.Bool("has_failed", supervisor.has_failed);
            m_json.EndObject();
        }
        m_json.EndArray();
        m_json.BeginArray("other_children");
        for (const OtherProcess& other : launcher.others) {
            m_json.BeginObject();
            WriteProcess(other.process);
            m_json.Text("command", other.command);
            m_json.EndObject();
        }
        m_json.EndArray();
        m_json.EndObject();
    }

    void WriteItem(const ItemStatus& item)
    {
        m_json.BeginObject();
        m_json.Count("index", item.index);
        if (item.name) {
            m_json.Text("name", *item.name);
        } else {
            m_json.Null("name");
        }
        m_json.Text("state", launchlist::NameOf(item.state));
        TextOrNull("reason", item.reason);
        m_json.Count("restarts", item.restarts);
        m_json.Count("restarts_last_hour", item.restarts_last_hour);
        m_json.Count("further_supervisors", item.supervisors);
        m_json.Count("group", item.group);
        if (item.process) {
            m_json.Text("matched_by", NameOf(item.matched_by));
            m_json.BeginObject("process");
            WriteProcess(*item.process);
            m_json.EndObject();
        } else {
            m_json.Null("matched_by");
            m_json.Null("process");
        }
        m_json.EndObject();
    }

    void WriteLeftover(const Leftover& leftover)
    {
        m_json.BeginObject();
        m_json.Text("kind", NameOf(leftover.kind));
        WriteProcess(leftover.process);
        m_json.Text("command", leftover.command);
        TextOrNull("list", leftover.list);
        m_json.BeginArray("items");
        for (std::size_t i = 0; i < leftover.items.size(); ++i) {
            m_json.BeginObject();
            m_json.Count("index", leftover.items[i]);
            m_json.Text("name", leftover.names[i]);
            m_json.EndObject();
        }
        m_json.EndArray();
        m_json.EndObject();
    }

    JsonWriter m_json;
};

}  // namespace

const char* NameOf(ItemState state)
{
    switch (state) {
        case ItemState::kRunning:
            return "running";
        case ItemState::kStarting:
            return "starting";
        case ItemState::kBetweenRuns:
            return "between-runs";
        case ItemState::kFailing:
            return "failing-to-start";
        case ItemState::kAbandoned:
            return "abandoned";
        case ItemState::kNeverStarted:
            return "never-started";
        case ItemState::kReplaced:
            return "replaced";
        case ItemState::kUnknown:
            break;
    }
    return "unknown";
}

void WriteStatusJson(const Status& status, const std::function<void(std::string_view)>& write)
{
    StatusWriter(write).Write(status);
}

std::string StatusJson(const Status& status)
{
    std::string text;
    WriteStatusJson(status, [&text](std::string_view piece) { text += piece; });
    return text;
}

}  // namespace launchlist
