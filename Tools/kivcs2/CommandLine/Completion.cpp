// Completions for shells. Bash and zsh share the functions that list the words; fish has its own
// lines.
#include "CommandLine/Generate.h"

#include <algorithm>
#include <map>

namespace tool
{
namespace
{

constexpr const char *kBash = R"sh(
# The words so far lead to a path of kivcs2's words and to a key: the option whose value comes, or the number
# of the positional.
_kivcs2()
{
    local current=${COMP_WORDS[COMP_CWORD]} path='' key='' position=1 word value start i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ -n $key ]]; then
            key=''
        elif _kivcs2_takes "$path $word"; then
            key=$word
        elif _kivcs2_has "${path:+$path }$word"; then
            path=${path:+$path }$word
        elif [[ $word != -* ]]; then
            ((position++))
        fi
    done
    start=${current#[\"\']}
    [[ $start != "$current" ]] || start=${current//\\/}
    if [[ -z $key && $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_kivcs2_options "$path")" -- "$current")
        return
    fi
    if [[ $(_kivcs2_values "$path ${key:-$position}") == @files ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$start")
        return
    fi
    while IFS= read -r value; do
        [[ $value == "$start"* ]] || continue
        [[ $current == [\"\']* ]] || value=$(printf %q "$value")
        COMPREPLY+=("$value")
    done < <([[ -n $key ]] || _kivcs2_words "$path"; _kivcs2_values "$path ${key:-$position}")
}
complete -F _kivcs2 kivcs2
)sh";

constexpr const char *kZsh = R"sh(
_kivcs2()
{
    local place='' key='' position=1 word i
    local -a values
    for ((i = 2; i < CURRENT; i++)); do
        word=${words[i]}
        if [[ -n $key ]]; then
            key=''
        elif _kivcs2_takes "$place $word"; then
            key=$word
        elif _kivcs2_has "${place:+$place }$word"; then
            place=${place:+$place }$word
        elif [[ $word != -* ]]; then
            ((position++))
        fi
    done
    if [[ -z $key && ${words[CURRENT]} == -* ]]; then
        values=(${(f)"$(_kivcs2_options "$place")"})
        compadd -a values
        return
    fi
    values=(${(f)"$(_kivcs2_values "$place ${key:-$position}")"})
    if [[ $values[1] == @files ]]; then
        _files
        return
    fi
    [[ -n $key ]] || values+=(${(f)"$(_kivcs2_words "$place")"})
    compadd -a values
}
_kivcs2 "$@"
)sh";

constexpr const char *kFish = R"sh(
# The words so far lead to a path of kivcs2's words; then the number of the positional that comes.
function __kivcs2_place
    set -l path
    set -l key
    set -l position 1
    for word in (commandline -opc)[2..-1]
        set -l here (string join -- ' ' $path $word)
        if set -q key[1]
            set key
        else if contains -- $here $__kivcs2_takes
            set key $word
        else if contains -- $here $__kivcs2_places
            set path $path $word
        else if not string match -q -- '-*' $word
            set position (math $position + 1)
        end
    end
    printf '%s\n' "$path" $position
end

# A path, and the numbers of the first and last positional where it is about those.
function __kivcs2_at
    set -l place (__kivcs2_place)
    test "$place[1]" = "$argv[1]"
    and begin
        test (count $argv) -eq 1
        or test $place[2] -ge $argv[2] -a $place[2] -le $argv[3]
    end
end

complete -c kivcs2 -f
)sh";

// Quotes a text so that no shell splits or expands it.
std::string quoted(std::string_view text)
{
    std::string result = "'";
    for (const char character : text)
        result += character == '\'' ? "'\\''" : std::string{character};
    return result + "'";
}

std::string fishQuoted(std::string_view text)
{
    std::string result = "'";
    for (const char character : text)
        result +=
            character == '\'' || character == '\\' ? std::string{'\\', character} : std::string{character};
    return result + "'";
}

// The places without the command's own name: "" for the command, "caption convert".
std::vector<Place> placesOf(const Word &root)
{
    std::vector<Place> places = placesFrom(root, "");
    for (Place &place : places)
        place.path.erase(0, place.path.starts_with(' ') ? 1 : 0);
    return places;
}

std::string functionOf(const std::string &prefix, std::string list)
{
    std::ranges::replace(list, ' ', '_');
    return prefix + list;
}

// The suggestions by the names of their lists, without duplicates.
std::map<std::string, Names> listsOf(const std::vector<Place> &places)
{
    std::map<std::string, Names> lists;
    for (const Place &place : places)
        for (const Option &option : place.word->options())
            if (option.facts().suggestions != nullptr)
                lists.try_emplace(option.facts().list, option.facts().suggestions());
    return lists;
}

std::string lines(const Names &names)
{
    std::string text = "printf '%s\\n'";
    for (const std::string &name : names)
        text += " " + quoted(name);
    return text;
}

// Returns whether the next words belong to the place. After "help" come the words of the command again.
bool leadsOn(const Place &place)
{
    return !place.path.empty() && place.path != "help";
}

// The shell code that prints the values of an option; empty if there are none.
std::string valuesOf(const Option &option)
{
    if (!option.facts().choices.empty())
        return lines(option.facts().choices);
    if (option.facts().isFile)
        return "echo @files";
    return option.facts().suggestions != nullptr ? functionOf("_kivcs2_list_", option.facts().list) : "";
}

std::string caseOf(const std::string &name, const std::string &branches, const std::string &otherwise)
{
    return "\n" + name + "()\n{\n    case \"$1\" in\n" + branches + otherwise + "    esac\n}\n";
}

// The functions that bash and zsh share: the values for each place, as shell code.
std::string sharedFunctions(const Word &root)
{
    const auto places = placesOf(root);
    std::string has, words, options, takes, values;
    for (const Place &place : places)
    {
        if (leadsOn(place))
            has += (has.empty() ? "        " : " | ") + quoted(place.path);
        Names below;
        for (const auto &word : place.word->words())
            below.push_back(word->facts().name);
        if (!below.empty())
            words += "        " + quoted(place.path) + ") " + lines(below) + " ;;\n";
        Names spellings = {"--help", "--json"};
        size_t position = 0;
        for (const Option &option : place.word->options())
        {
            Names keys = option.spellings();
            if (option.isPositional())
                keys = {std::to_string(++position)};
            else if (option.name() != "--json")
                spellings.insert(spellings.end(), keys.begin(), keys.end());
            const std::string print = valuesOf(option);
            for (const std::string &key : keys)
            {
                if (!option.isPositional() && !option.isFlag())
                    takes += (takes.empty() ? "        " : " | ") + quoted(place.path + " " + key);
                if (!print.empty())
                {
                    const bool isList = option.isPositional() && option.facts().most > 1;
                    values.append("        ").append(quoted(place.path + " " + (isList ? "" : key)));
                    values.append(isList ? "[1-9]*) " : ") ").append(print).append(" ;;\n");
                }
            }
        }
        options.append("        ").append(quoted(place.path)).append(") ");
        options.append(lines(spellings)).append(" ;;\n");
    }
    std::string text;
    for (const auto &[name, list] : listsOf(places))
        text += "\n" + functionOf("_kivcs2_list_", name) + "()\n{\n    " + lines(list) + "\n}\n";
    return text + caseOf("_kivcs2_has", has + ") ;;\n", "        *) return 1 ;;\n") +
           caseOf("_kivcs2_takes", takes + ") ;;\n", "        *) return 1 ;;\n") +
           caseOf("_kivcs2_words", words, "") + caseOf("_kivcs2_options", options, "") +
           caseOf("_kivcs2_values", values, "");
}

// The end of a line of "complete" for the values of an option.
std::string fishValues(const Option &option)
{
    const Option::Facts &facts = option.facts();
    if (facts.isFile)
        return " -F";
    if (!facts.choices.empty())
    {
        std::string choices;
        for (const std::string &choice : facts.choices)
            choices += (choices.empty() ? "" : " ") + choice;
        return " -a " + fishQuoted(choices);
    }
    return facts.suggestions != nullptr ? " -a '(" + functionOf("__kivcs2_list_", facts.list) + ")'" : "";
}

// The beginning of a line of "complete"; `where` is the argument of __kivcs2_at, or empty for every place.
std::string fishCondition(const std::string &where)
{
    return where.empty() ? "complete -c kivcs2" : "complete -c kivcs2 -n \"__kivcs2_at " + where + "\"";
}

std::string fishOption(const std::string &where, const Option &option, size_t &position)
{
    const std::string values = fishValues(option);
    if (option.isPositional())
    {
        const size_t first = position;
        position += option.facts().most;
        return values.empty()
                   ? ""
                   : fishCondition(where + " " + std::to_string(first) + " " + std::to_string(position - 1)) +
                         values + "\n";
    }
    std::string line = fishCondition(where);
    for (const std::string &spelling : option.spellings())
        line += spelling.starts_with("--") ? " -l " + spelling.substr(2) : " -s " + spelling.substr(1);
    return line +
           (option.isFlag()         ? ""
            : option.facts().isFile ? " -r"
                                    : " -x") +
           values + " -d " + fishQuoted(option.facts().help) + "\n";
}

std::string fishLines(const Word &root)
{
    const auto places = placesOf(root);
    std::string text = "set -g __kivcs2_places", takes = "set -g __kivcs2_takes";
    for (const Place &place : places)
    {
        text += leadsOn(place) ? " " + fishQuoted(place.path) : "";
        for (const Option &option : place.word->options())
            if (!option.isPositional() && !option.isFlag())
                for (const std::string &spelling : option.spellings())
                    takes += " " + fishQuoted(place.path + " " + spelling);
    }
    text += "\n" + takes + "\n";
    for (const auto &[name, list] : listsOf(places))
    {
        text += "\nfunction " + functionOf("__kivcs2_list_", name) + "\n    printf '%s\\n'";
        for (const std::string &value : list)
            text += " " + fishQuoted(value);
        text += "\nend\n";
    }
    text += kFish;
    for (const Place &place : places)
    {
        const std::string where = fishQuoted(place.path);
        for (const auto &word : place.word->words())
            text += fishCondition(where) + " -a " + word->facts().name + " -d " +
                    fishQuoted(word->facts().help) + "\n";
        size_t position = 1;
        for (const Option &option : place.word->options())
            if (&place != &places.front())
                text += fishOption(where, option, position);
    }
    size_t position = 1;
    for (const Option &option : root.options())
        text += fishOption("", option, position); // after every word
    return text + "complete -c kivcs2 -s h -l help -d 'The help of the word in front of it'\n";
}

constexpr const char *kMade =
    "Made by kivcs2 generate completion; changes belong into the words themselves.\n";

} // namespace

std::string completion(const Word &root, std::string_view shell)
{
    const bool isFish = shell == "fish", isZsh = shell == "zsh";
    std::string text = isFish ? "# " : isZsh ? "#compdef kivcs2\n# " : "# shellcheck shell=bash\n# ";
    text += kMade;
    if (isFish)
        return text + fishLines(root);
    return text + sharedFunctions(root) + (isZsh ? kZsh : kBash);
}

} // namespace tool
