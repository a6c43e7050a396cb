#include <map>
#include <memory>

#include "tools/launchlist/commands/command_words.h"
#include "tools/launchlist/commands/commands.h"

namespace launchlist {

namespace {

using Words = std::vector<std::string>;

std::string Joined(const Words& words, const std::string& separator)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

// `text` with `escape` before each of `characters`.
std::string Escaped(const std::string& text, const std::string& characters, const char* escape)
{
    std::string result;
    for (const char c : text) {
        result += (characters.find(c) == std::string::npos ? "" : escape) + std::string(1, c);
    }
    return result;
}

// A word of bash or zsh.
std::string ShellQuoted(const std::string& text)
{
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return result + "'";
}

// "-n" and "--lines".
Words NamesOf(const OptionWords& option)
{
    Words names;
    for (const std::string& name : option.short_names) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.long_names) {
        names.push_back("--" + name);
    }
    return names;
}

Words NamesOf(const std::vector<OptionWords>& options)
{
    Words names;
    for (const OptionWords& option : options) {
        for (const std::string& name : NamesOf(option)) {
            names.push_back(name);
        }
    }
    return names;
}

// What bash suggests for a value, as the body of a case.
std::string BashValue(const Value& value)
{
    return value.kind == ValueKind::kFile      ? "files=yes"
           : value.kind == ValueKind::kChoices ? "words=" + ShellQuoted(Joined(value.choices, " "))
                                               : ":";
}

std::string BashCommand(const CommandWords& command)
{
    std::string values;
    for (const OptionWords& option : command.options) {
        if (option.value.kind != ValueKind::kNone) {
            values += "        " + command.name + ":" +
                      Joined(NamesOf(option), " | " + command.name + ":") + ") " +
                      BashValue(option.value) + " ;;\n";
        }
    }
    const std::string positional =
        command.positionals.empty() ? ":" : BashValue(command.positionals.front());
    return values + "        " + command.name + ":*)\n            case $word in\n" +
           "                -*) words=" + ShellQuoted(Joined(NamesOf(command.options), " ")) +
           " ;;\n                *) " + positional + " ;;\n            esac\n            ;;\n";
}

// Also for the bash 3.2 of macOS, which has neither compopt nor mapfile.
std::string BashScript(const CLI::App& app)
{
    Words first;
    std::string cases;
    for (const CommandWords& command : WordsOfSubcommands(app)) {
        first.push_back(command.name);
        cases += BashCommand(command);
    }
    for (const std::string& name : NamesOf(WordsOf(app).options)) {
        first.push_back(name);
    }
    return R"(# Completion of launchlist for bash, written by "launchlist completion bash".
_launchlist()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} words= files= reply
    # bash splits "--sort=name" at the equals sign.
    if [ "$word" = "=" ]; then
        word=
    elif [ "$before" = "=" ]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $COMP_CWORD:${COMP_WORDS[1]}:$before in
        1:*) before= ;;
        *) before=${COMP_WORDS[1]}:$before ;;
    esac
    case $before in
        "") words=)" +
           ShellQuoted(Joined(first, " ")) + " ;;\n" + cases + R"(    esac
    COMPREPLY=()
    while IFS= read -r reply; do
        COMPREPLY+=("$reply")
    done < <(if [ -n "$files" ]; then compgen -f -- "$word"; else compgen -W "$words" -- "$word"; fi)
    if [ -n "$files" ]; then
        compopt -o filenames 2>/dev/null
    fi
}
complete -F _launchlist launchlist
)";
}

// What zsh suggests for a value: ":LOG:_files".
std::string ZshValue(const Value& value)
{
    const std::string action = value.kind == ValueKind::kFile ? "_files"
                               : value.kind == ValueKind::kChoices
                                   ? "(" + Joined(value.choices, " ") + ")"
                                   : " ";
    return ":" + value.name + ":" + action;
}

std::string ZshOption(const OptionWords& option)
{
    const std::string text = "[" + Escaped(option.description, "[]\\", "\\") + "]";
    const Words names = NamesOf(option);
    std::string words;
    for (const std::string& name : names) {
        const bool has_value = option.value.kind != ValueKind::kNone;
        const bool is_long = name.compare(0, 2, "--") == 0;
        const std::string exclusive =
            option.value.is_repeatable ? "*" : "(" + Joined(names, " ") + ")";
        words +=
            " \\\n                " + ShellQuoted(exclusive + name +
                                                  (!has_value ? ""
                                                   : is_long  ? "="
                                                              : "+") +
                                                  text + (has_value ? ZshValue(option.value) : ""));
    }
    return words;
}

std::string ZshArguments(const CommandWords& command)
{
    std::string words;
    for (const OptionWords& option : command.options) {
        words += ZshOption(option);
    }
    for (const Value& value : command.positionals) {
        words += " \\\n                " +
                 ShellQuoted((value.is_repeatable ? "*" : "") + ZshValue(value));
    }
    return "_arguments -s" + words;
}

std::string ZshScript(const CLI::App& app)
{
    std::string commands;
    std::string cases;
    for (const CommandWords& command : WordsOfSubcommands(app)) {
        commands += "            " + ShellQuoted(command.name + ":" + command.description) + "\n";
        cases += "        " + command.name + ")\n            " + ZshArguments(command) +
                 "\n            ;;\n";
    }
    return R"(#compdef launchlist
# Completion of launchlist for zsh, written by "launchlist completion zsh".
_launchlist()
{
    local -a commands
    if ((CURRENT == 2)); then
        commands=(
)" + commands +
           R"(        )
        _describe command commands
        )" +
           ZshArguments(WordsOf(app)) + R"(
        return
    fi
    shift words
    ((CURRENT--))
    case $words[1] in
)" + cases +
           R"(    esac
}

_launchlist "$@"
)";
}

// A word of fish.
std::string FishQuoted(const std::string& text)
{
    return "'" + Escaped(text, "'\\", "\\") + "'";
}

std::string FishValue(const Value& value)
{
    switch (value.kind) {
        case ValueKind::kNone:
            return "";
        case ValueKind::kFile:
            return " -r -F";
        case ValueKind::kChoices:
            return " -x -a " + FishQuoted(Joined(value.choices, " "));
        case ValueKind::kOther:
            break;
    }
    return " -x";
}

std::string FishOptions(const CommandWords& command, const std::string& line)
{
    std::string lines;
    for (const OptionWords& option : command.options) {
        std::string names;
        for (const std::string& name : option.short_names) {
            names += " -s " + name;
        }
        for (const std::string& name : option.long_names) {
            names += " -l " + name;
        }
        lines +=
            line + names + FishValue(option.value) + " -d " + FishQuoted(option.description) + "\n";
    }
    return lines;
}

std::string FishScript(const CLI::App& app)
{
    const std::string complete = "complete -c launchlist";
    std::string script =
        "# Completion of launchlist for fish, written by \"launchlist completion fish\".\n"
        "function __launchlist_command\n"
        "    set -l words (commandline -opc)\n"
        "    test (count $words) -gt 1; and test $words[2] = $argv[1]\n"
        "end\n" +
        complete + " -f\n";
    const std::string first = complete + " -n 'test (count (commandline -opc)) -eq 1'";
    script += FishOptions(WordsOf(app), first);
    for (const CommandWords& command : WordsOfSubcommands(app)) {
        const std::string line = complete + " -n '__launchlist_command " + command.name + "'";
        script += first + " -a " + command.name + " -d " + FishQuoted(command.description) + "\n";
        script += FishOptions(command, line);
        if (!command.positionals.empty()) {
            const Value& value = command.positionals.front();
            script += value.kind == ValueKind::kFile ? line + " -F\n"
                      : value.kind == ValueKind::kChoices
                          ? line + " -a " + FishQuoted(Joined(value.choices, " ")) + "\n"
                          : "";
        }
    }
    return script;
}

}  // namespace

Command AddCompletionCommand(CLI::App& app)
{
    using Script = std::string (*)(const CLI::App&);
    static const std::map<std::string, Script> kScripts = {
        {"bash", BashScript}, {"fish", FishScript}, {"zsh", ZshScript}};
    CLI::App* parser = app.add_subcommand("completion", "Print the completion script for a shell.");
    const auto shell = std::make_shared<std::string>();
    parser->add_option("SHELL", *shell, "The shell")
        ->required()
        ->check(CLI::IsMember(std::vector<std::string>{"bash", "fish", "zsh"}));
    parser->footer(
        "The packages for Linux have all three in the directories that the shells search.\n"
        "Exit status: 0 printed, 3 the output cannot be written.\n"
        "Example:\n  launchlist completion zsh > ~/.zfunc/_launchlist");
    return {parser, [&app, shell] { return Print(kScripts.at(*shell)(app), kSuccess); }};
}

}  // namespace launchlist
