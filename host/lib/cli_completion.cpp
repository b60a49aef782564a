#include "host/lib/cli_completion.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "host/lib/cli_tree.h"

namespace zelhost {
namespace {

using Words = std::vector<std::string>;

std::string joined(const Words& words) { return fmt::format("{}", fmt::join(words, " ")); }

// Goes on behind what was put in, so that a text may stand in its own replacement.
std::string replaced(std::string text, std::string_view from, std::string_view to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

Words names_of_commands(const CLI::App& root) {
    Words names;
    for (const CommandApp* command : commands_of(root)) names.push_back(command->get_name());
    return names;
}

// A positional argument has a name for people alone.
Words names_of_options(const CLI::App& app) {
    Words names;
    for (const Argument& argument : arguments_of(app))
        if (!argument.positional) names.insert(names.end(), argument.names.begin(), argument.names.end());
    return names;
}

// What a command takes beside options; the first decides what is offered.
const Argument* positional(const std::vector<Argument>& arguments) {
    const auto found = std::ranges::find_if(arguments, &Argument::positional);
    return found == arguments.end() ? nullptr : &*found;
}

// --- bash ---

constexpr std::string_view kBashBegin =
    R"(# Completions of zelhost for bash. Made from the parser's own options by tools/update_docs.

# Offers those of the words $1 that begin as the word under the cursor does.
_zelhost_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur"); }

# The same for the last of several words with $2 between them.
_zelhost_list() {
    local before=
    [[ $cur == *"$2"* ]] && before=${cur%"$2"*}$2
    mapfile -t COMPREPLY < <(compgen -P "$before" -W "$1" -- "${cur#"$before"}")
}

# Offers files, or with -d folders; readline adds what it adds to file names.
_zelhost_paths() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$1" -- "$cur")
}

_zelhost() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command= i
    COMPREPLY=()
    # An option and its value with "=" between them come as three words.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        [[ ${COMP_WORDS[i]} == -* ]] && continue
        command=${COMP_WORDS[i]}
        break
    done
    case "$command $prev" in
)";

// Nothing is offered for a value that cannot be listed.
std::string bash_offer(const Argument& argument) {
    switch (argument.completes) {
        case Completes::choices:
            if (argument.delimiter != '\0')
                return fmt::format("_zelhost_list '{}' '{}'", joined(argument.choices), argument.delimiter);
            return fmt::format("_zelhost_words '{}'", joined(argument.choices));
        case Completes::files: return "_zelhost_paths -f";
        case Completes::folders: return "_zelhost_paths -d";
        case Completes::nothing: break;
    }
    return "";
}

// The value of an option: a pattern of command and option, and what is offered for it.
std::string bash_value(const CLI::App& command, const Argument& argument) {
    Words patterns;
    // Each name of the option gets a pattern, since the shell sees the one that was typed.
    for (const std::string& name : argument.names) patterns.push_back(fmt::format("'{} {}'", command.get_name(), name));
    const std::string offer = bash_offer(argument);
    return fmt::format("        {}) {}return ;;\n", fmt::join(patterns, " | "), offer.empty() ? "" : offer + "; ");
}

// The words of a command: its options behind a dash, or where it takes nothing else.
std::string bash_command(const CLI::App& command) {
    const std::vector<Argument> arguments = arguments_of(command);
    const std::string options = fmt::format("_zelhost_words '{}'", joined(names_of_options(command)));
    const Argument* const taken = positional(arguments);
    const std::string offer = taken == nullptr ? "" : bash_offer(*taken);
    if (offer.empty()) return fmt::format("        {}) {} ;;\n", command.get_name(), options);
    return fmt::format("        {}) if [[ $cur == -* ]]; then {}; else {}; fi ;;\n", command.get_name(), options,
                       offer);
}

// The order matters to the shell: values of options are tried before the words of a command.
std::string bash_script(const CLI::App& root) {
    std::string script(kBashBegin);
    for (const CommandApp* command : commands_of(root))
        for (const Argument& argument : arguments_of(*command))
            if (!argument.positional && !argument.value.empty()) script += bash_value(*command, argument);
    Words first = names_of_commands(root);
    const Words options = names_of_options(root);
    first.insert(first.end(), options.begin(), options.end());
    script += fmt::format("    esac\n    case $command in\n        '') _zelhost_words '{}' ;;\n", joined(first));
    for (const CommandApp* command : commands_of(root)) script += bash_command(*command);
    return script + "    esac\n}\n\ncomplete -F _zelhost zelhost\n";
}

// --- zsh ---

// A quote in a quoted text ends it, stands escaped, and begins it anew.
std::string zsh_quoted(const std::string& text) { return "'" + replaced(text, "'", "'\\''") + "'"; }

// Brackets and colons mean something to zsh where an argument is described.
std::string zsh_part(std::string text) {
    for (const char* const special : {"\\", "[", "]", ":"}) text = replaced(text, special, std::string("\\") + special);
    return text;
}

// ":what is asked for:how it is completed".
std::string zsh_value(const Argument& argument) {
    const std::string what = zsh_part(argument.positional ? argument.names.front() : argument.value);
    switch (argument.completes) {
        case Completes::choices: return fmt::format(":{}:({})", what, joined(argument.choices));
        case Completes::files: return ":" + what + ":_files";
        case Completes::folders: return ":" + what + ":_files -/";
        case Completes::nothing: break;
    }
    return ":" + what + ": ";
}

// One line for each name of an option; one name excludes the others.
std::string zsh_argument(const Argument& argument, const std::string& indent) {
    if (argument.positional) return indent + zsh_quoted((argument.repeats ? "*" : "") + zsh_value(argument)) + " \\\n";
    std::string lines;
    for (const std::string& name : argument.names) {
        std::string spec = argument.repeats ? "*" : "(" + joined(argument.names) + ")";
        // The value of a long option may stand behind an equals sign, that of a short one right
        // behind it.
        spec += name + (argument.value.empty() ? "" : name.starts_with("--") ? "=" : "+");
        spec += "[" + zsh_part(argument.help) + "]" + (argument.value.empty() ? "" : zsh_value(argument));
        lines += indent + zsh_quoted(spec) + " \\\n";
    }
    return lines;
}

std::string zsh_script(const CLI::App& root) {
    std::string script =
        "#compdef zelhost\n# Completions of zelhost for zsh. Made from the parser's own options by "
        "tools/update_docs.\n\n"
        "_zelhost() {\n    local curcontext=$curcontext state line\n    typeset -A opt_args\n    _arguments -C \\\n";
    for (const Argument& argument : arguments_of(root)) script += zsh_argument(argument, "        ");
    script +=
        "        '1: :->command' '*:: :->arguments'\n    case $state in\n        command)\n            local -a "
        "commands=(\n";
    for (const CommandApp* command : commands_of(root))
        script += fmt::format("                {}\n", zsh_quoted(command->get_name() + ":" + command->help_line()));
    // The words from the command on are what the second state sees.
    // The shell numbers words anew from the command on.
    script +=
        "            )\n            _describe -t commands command commands\n            ;;\n"
        "        arguments)\n            case $words[1] in\n";
    for (const CommandApp* command : commands_of(root)) {
        script += fmt::format("                {})\n                    _arguments \\\n", command->get_name());
        for (const Argument& argument : arguments_of(*command))
            script += zsh_argument(argument, "                        ");
        script += "                        && return\n                    ;;\n";
    }
    return script + "            esac\n            ;;\n    esac\n}\n\n_zelhost \"$@\"\n";
}

// --- fish ---

constexpr std::string_view kFishBegin =
    R"(# Completions of zelhost for fish. Made from the parser's own options by tools/update_docs.

# True when the first word that is no option is the given one; an empty one stands for no command yet.
function __zelhost_in
    set -l command
    for word in (commandline -opc)[2..-1]
        if not string match -q -- '-*' $word
            set command $word
            break
        end
    end
    test "$command" = "$argv[1]"
end

complete -c zelhost -f
)";

// Backslashes go first, because the second step adds some.
std::string fish_quoted(const std::string& text) {
    return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string fish_offer(const Argument& argument) {
    switch (argument.completes) {
        case Completes::choices: return " -f -a " + fish_quoted(joined(argument.choices));
        case Completes::files: return " -F";
        case Completes::folders: return " -f -a '(__fish_complete_directories)'";
        case Completes::nothing: break;
    }
    return "";
}

// A positional argument has no name to complete, only values.
std::string fish_argument(const std::string& condition, const Argument& argument) {
    std::string line = "complete -c zelhost -n " + condition;
    if (argument.positional) {
        const std::string offer = fish_offer(argument);
        return offer.empty() ? "" : line + offer + "\n";
    }
    for (const std::string& name : argument.names)
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (!argument.value.empty()) line += " -r" + fish_offer(argument);
    return line + " -d " + fish_quoted(argument.help) + "\n";
}

std::string fish_script(const CLI::App& root) {
    const auto in = [](const std::string& command) { return "\"__zelhost_in " + command + "\""; };
    std::string script(kFishBegin);
    for (const CommandApp* command : commands_of(root))
        script += fmt::format("complete -c zelhost -n {} -a {} -d {}\n", in("''"), command->get_name(),
                              fish_quoted(command->help_line()));
    for (const Argument& argument : arguments_of(root)) script += fish_argument(in("''"), argument);
    for (const CommandApp* command : commands_of(root))
        for (const Argument& argument : arguments_of(*command))
            script += fish_argument(in(command->get_name()), argument);
    return script;
}

}  // namespace

std::string completion_script(const CLI::App& root, Shell shell) {
    switch (shell) {
        case Shell::bash: return bash_script(root);
        case Shell::zsh: return zsh_script(root);
        case Shell::fish: break;
    }
    return fish_script(root);
}

}  // namespace zelhost
