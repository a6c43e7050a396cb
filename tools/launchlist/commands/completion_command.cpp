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

// The names of the options whose value is required, or of those whose value is optional.
Words NamesOfOptionsWithValue(const CommandWords& command, bool is_optional)
{
    std::vector<OptionWords> options;
    for (const OptionWords& option : command.options) {
        if (option.value.kind != ValueKind::kNone && option.value.is_optional == is_optional) {
            options.push_back(option);
        }
    }
    return NamesOf(options);
}

// The options of a subcommand for bash, as a case.
std::string BashOptions(const CommandWords& command)
{
    const auto list = [](const Words& words) { return ShellQuoted(Joined(words, " ")) + "\n"; };
    const std::string indent(12, ' ');
    std::string text = "        " + command.name + ")\n";
    text += indent + "options=" + list(NamesOf(command.options));
    text += indent + "required=" + list(NamesOfOptionsWithValue(command, false));
    text += indent + "optional=" + list(NamesOfOptionsWithValue(command, true));
    text += indent + "first=" + (command.options_come_first ? "yes\n" : "\n");
    return text + indent + ";;\n";
}

// What bash suggests for a value, as a case.
std::string BashCase(const std::string& pattern, const Value& value)
{
    const std::string words = value.kind == ValueKind::kFile ? "files=yes"
                              : value.kind == ValueKind::kChoices
                                  ? "words=" + ShellQuoted(Joined(value.choices, " "))
                                  : ":";
    return "            " + pattern + ") " + words + " ;;\n";
}

// The values of a subcommand's options, and its arguments by the number of those before them.
std::string BashValues(const CommandWords& command)
{
    const std::string prefix = command.name + ":";
    std::string cases;
    for (const OptionWords& option : command.options) {
        if (option.value.kind != ValueKind::kNone) {
            cases += BashCase(prefix + Joined(NamesOf(option), " | " + prefix), option.value);
        }
    }
    cases += "            " + prefix + "-) words=$options ;;\n";
    for (std::size_t i = 0; i < command.positionals.size(); ++i) {
        const Value& value = command.positionals[i];
        cases += BashCase(prefix + (value.is_repeatable ? "*" : std::to_string(i)), value);
    }
    return cases;
}

// Also for the bash 3.2 of macOS, which has neither compopt nor mapfile.
std::string BashScript(const CLI::App& app)
{
    Words first;
    std::string options;
    std::string values;
    for (const CommandWords& command : WordsOfSubcommands(app)) {
        first.push_back(command.name);
        options += BashOptions(command);
        values += BashValues(command);
    }
    for (const std::string& name : NamesOf(WordsOf(app).options)) {
        first.push_back(name);
    }
    return R"(# Completion of launchlist for bash, written by "launchlist completion bash".
_launchlist()
{
    local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} words= files= reply i before
    local options= required= optional= first= option= literal= count=0 place
    case $command in
)" + options +
           R"(    esac
    # Sets `option` to the option before the word, if it may have a value, and counts the arguments.
    # bash splits "--sort=name" at the equals sign.
    for ((i = 2; i < COMP_CWORD; i++)); do
        before=${COMP_WORDS[i]}
        if [ -n "$literal" ]; then
            count=$((count + 1))
        elif [[ -n $option && $before = "=" ]]; then
            :
        elif [[ -n $option && " $required " = *" $option "* ]]; then
            option=
        elif [ "$before" = "--" ]; then
            literal=yes option=
        elif [[ $before = -?* ]]; then
            option=$before
        elif [[ -n $option && " $optional " = *" $option "* && $before = [0-9]* ]]; then
            option=
        else
            count=$((count + 1)) literal=$first option=
        fi
    done
    if [ "$word" = "=" ]; then
        word=
    fi
    if [[ -n $option && " $required " = *" $option "* ]]; then
        place=$option
    elif [[ -z $literal && $word = -* ]]; then
        place=-
    else
        place=$count
    fi
    if [ "$COMP_CWORD" = 1 ]; then
        words=)" +
           ShellQuoted(Joined(first, " ")) + R"(
    else
        case $command:$place in
)" + values +
           R"(        esac
    fi
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

// What zsh suggests for a value: ":LOG:_files"; "::" begins an optional one.
std::string ZshValue(const Value& value)
{
    const std::string action = value.kind == ValueKind::kFile ? "_files"
                               : value.kind == ValueKind::kChoices
                                   ? "(" + Joined(value.choices, " ") + ")"
                                   : " ";
    return (value.is_optional ? "::" : ":") + value.name + ":" + action;
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
    return std::string("_arguments -s") + (command.options_come_first ? " -A '-*'" : "") + words;
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

// An optional value is not an argument of the option for fish, which would insist on it.
std::string FishValue(const Value& value)
{
    switch (value.is_optional ? ValueKind::kNone : value.kind) {
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

// What fish suggests as the arguments of a subcommand, by their numbers.
std::string FishArguments(const CommandWords& command, const std::string& complete)
{
    std::string lines;
    for (std::size_t i = 0; i < command.positionals.size(); ++i) {
        const Value& value = command.positionals[i];
        const std::string number = std::to_string(i);
        const std::string line = complete + " -n '__launchlist_argument " + command.name + " " +
                                 number + (value.is_repeatable ? " 1000000" : " " + number) + "'";
        lines += value.kind == ValueKind::kFile ? line + " -F\n"
                 : value.kind == ValueKind::kChoices
                     ? line + " -a " + FishQuoted(Joined(value.choices, " ")) + "\n"
                     : "";
    }
    return lines;
}

std::string FishScript(const CLI::App& app)
{
    const std::string complete = "complete -c launchlist";
    const std::string first = complete + " -n 'test (count (commandline -opc)) -eq 1'";
    std::string cases;
    std::string lines = FishOptions(WordsOf(app), first);
    for (const CommandWords& command : WordsOfSubcommands(app)) {
        cases += "        case " + command.name + "\n            set required " +
                 Joined(NamesOfOptionsWithValue(command, false), " ") +
                 "\n            set optional " +
                 Joined(NamesOfOptionsWithValue(command, true), " ") + "\n            set first " +
                 (command.options_come_first ? "yes" : "") + "\n";
        lines += first + " -a " + command.name + " -d " + FishQuoted(command.description) + "\n";
        lines += FishOptions(command, complete + " -n '__launchlist_option " + command.name + "'");
        lines += FishArguments(command, complete);
    }
    return R"(# Completion of launchlist for fish, written by "launchlist completion fish".
# Prints the subcommand, the number of arguments before the word, and "literal" if no option can follow.
function __launchlist_place
    set -l words (commandline -opc)
    set -l command $words[2]
    set -l required
    set -l optional
    set -l first
    switch "$command"
)" + cases +
           R"(    end
    set -l count 0
    set -l literal
    set -l option
    set -e words[1]
    set -e words[1]
    for word in $words
        if test -n "$literal"
            set count (math $count + 1)
        else if contains -- "$option" $required
            set option
        else if test "$word" = --
            set literal literal
            set option
        else if string match -q -r -- '^-.' "$word"
            set option $word
        else if contains -- "$option" $optional; and string match -q -r -- '^[0-9]' "$word"
            set option
        else
            set count (math $count + 1)
            set option
            if test -n "$first"
                set literal literal
            end
        end
    end
    echo $command
    echo $count
    echo $literal
end
# Whether an option of this subcommand can follow.
function __launchlist_option
    set -l place (__launchlist_place)
    test "$place[1]" = $argv[1]; and test -z "$place[3]"
end
# Whether an argument of this subcommand can follow that has between these numbers before it.
function __launchlist_argument
    set -l place (__launchlist_place)
    test "$place[1]" = $argv[1]; and test $place[2] -ge $argv[2]; and test $place[2] -le $argv[3]
end
)" + complete +
           " -f\n" + lines;
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
        "The packages for Linux install the scripts for all three shells.\n"
        "Exit status: 0 printed, 3 the output cannot be written.\n"
        "Example:\n  launchlist completion zsh > ~/.zfunc/_launchlist");
    return {parser, [&app, shell] { return Print(kScripts.at(*shell)(app), kSuccess); }};
}

}  // namespace launchlist
