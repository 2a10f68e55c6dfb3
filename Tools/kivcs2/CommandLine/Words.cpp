// The description of words and options, and the values stored through it.
#include "CommandLine/CommandLine.h"

#include "CommandLine/Numbers.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <stdexcept>

namespace tool
{
namespace
{

template <class... Cases>
struct Overloaded : Cases...
{
    using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

std::string quoted(std::string_view text)
{
    return "\"" + visible(text) + "\"";
}

std::string joined(const Names &names, std::string_view between)
{
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : std::string{between}) + name;
    return text;
}

// "RATE" for the list of "frame rates".
std::string oneOf(std::string_view list)
{
    list.remove_prefix(std::min(list.find(' ') + 1, list.size()));
    list.remove_suffix(list.ends_with("uses") ? 2 : 1);
    std::string name{list};
    std::ranges::transform(name, name.begin(),
                           [](char letter) { return static_cast<char>(letter - 'a' + 'A'); });
    return name;
}

// "2.5", and "10" without a fraction.
std::string numberText(double value)
{
    return print("%.12g", value);
}

std::invalid_argument outside(std::string_view text, const std::string &kind, const std::string &least,
                              const std::string &most)
{
    return std::invalid_argument{quoted(text) + " is not a " + kind + " from " + least + " to " + most};
}

} // namespace

Option::Option(std::string names, Target target, std::string help) : m_target(target)
{
    m_facts.names = std::move(names);
    m_facts.help = std::move(help);
    if (isFlag())
        m_facts.least = m_facts.most = 0;
    if (isList())
        m_facts.most = 1u << 29; // the largest number that the parser counts
}

Option &Option::required()
{
    m_facts.isRequired = true;
    return *this;
}

Option &Option::times(size_t least, size_t most)
{
    m_facts.least = least;
    m_facts.most = most;
    return *this;
}

Option &Option::oneAtATime()
{
    m_facts.isOneAtATime = true;
    return *this;
}

Option &Option::among(Names choices)
{
    m_facts.choices = std::move(choices);
    return *this;
}

Option &Option::suggests(std::string list, Names (*names)())
{
    m_facts.list = std::move(list);
    m_facts.suggestions = names;
    return *this;
}

Option &Option::isFile()
{
    m_facts.isFile = true;
    return *this;
}

Option &Option::isTarget()
{
    m_facts.isTarget = true;
    return isFile();
}

Option &Option::excludes(const std::string &name)
{
    m_facts.excluded = name;
    return *this;
}

Option &Option::shownDefault()
{
    m_facts.defaultText =
        std::visit(Overloaded{[](const std::string *value) { return *value; },
                              [](const int32_t *value) { return std::to_string(*value); },
                              [](const uint32_t *value) { return std::to_string(*value); },
                              [](const uint64_t *value) { return std::to_string(*value); },
                              [](const double *value) { return numberText(*value); },
                              [](const Bytes &bytes) { return std::to_string(*bytes.value); },
                              [](const auto *) { return std::string{}; }},
                   m_target);
    return *this;
}

Option &Option::within(Bounds bounds)
{
    m_bounds = bounds;
    return *this;
}

Option &Option::within(RealBounds bounds)
{
    m_realBounds = bounds;
    return *this;
}

uint64_t Option::whole(const std::string &text) const
{
    const auto number = wholeNumber(text);
    if (!number || *number < m_bounds.least || *number > m_bounds.most)
        throw outside(text, "whole number", std::to_string(m_bounds.least), std::to_string(m_bounds.most));
    return *number;
}

double Option::real(const std::string &text) const
{
    const auto number = realNumber(text);
    if (!number || *number < m_realBounds.least || *number > m_realBounds.most)
        throw outside(text, "number", numberText(m_realBounds.least), numberText(m_realBounds.most));
    return *number;
}

const std::string &Option::chosen(const std::string &text) const
{
    if (m_facts.choices.empty())
        return text;
    const auto found = std::ranges::find_if(m_facts.choices, [&text](const std::string &choice)
                                            { return isEqualInAnyCase(choice, text); });
    if (found == m_facts.choices.end())
        throw std::invalid_argument{quoted(text) + " is not one of " + joined(m_facts.choices, ", ")};
    return *found;
}

void Option::take(const Names &texts) const
{
    const std::string &first = texts.front();
    if (texts.size() > std::max<size_t>(m_facts.most, 1))
        throw std::invalid_argument{"takes " + count(m_facts.most, "value") + " at most, not " +
                                    std::to_string(texts.size())};
    (void)chosen(first); // refuses a wrong choice of any type
    if (m_facts.isTarget && first == "-")
        giveStandardOutputToData();
    std::visit(Overloaded{[&](bool *value) { *value = first == "true"; },
                          [&](std::string *value) { *value = chosen(first); },
                          [&](std::optional<std::string> *value) { *value = first; },
                          [&](Names *values) { *values = texts; },
                          [&](int32_t *value) { *value = static_cast<int32_t>(whole(first)); },
                          [&](uint32_t *value) { *value = static_cast<uint32_t>(whole(first)); },
                          [&](uint64_t *value) { *value = whole(first); },
                          [&](double *value) { *value = real(first); },
                          [&](const Bytes &bytes)
                          {
                              const auto number = byteNumber(first);
                              if (!number)
                                  throw std::invalid_argument{
                                      quoted(first) + " is not a number of bytes, such as 188, 64k or 4M"};
                              *bytes.value = *number;
                          }},
               m_target);
}

bool Option::isFlag() const
{
    return std::holds_alternative<bool *>(m_target);
}

bool Option::isList() const
{
    return std::holds_alternative<Names *>(m_target);
}

bool Option::isPositional() const
{
    return !m_facts.names.starts_with('-');
}

std::string Option::name() const
{
    return m_facts.names.substr(m_facts.names.rfind(',') + 1);
}

Names Option::spellings() const
{
    const size_t comma = m_facts.names.find(',');
    return comma == std::string::npos
               ? Names{m_facts.names}
               : Names{m_facts.names.substr(0, comma), m_facts.names.substr(comma + 1)};
}

std::string Option::placeholder() const
{
    if (!m_facts.choices.empty())
        return joined(m_facts.choices, "|");
    if (m_facts.isFile)
        return "FILE";
    if (!m_facts.list.empty())
        return oneOf(m_facts.list);
    return std::visit(Overloaded{[](const bool *) { return ""; }, [](const std::string *) { return "TEXT"; },
                                 [](const std::optional<std::string> *) { return "TEXT"; },
                                 [](const Names *) { return "TEXT"; }, [](const Bytes &) { return "BYTES"; },
                                 [](const auto *) { return "NUMBER"; }},
                      m_target);
}

Word::Word(std::string name, std::string help)
{
    m_facts.name = std::move(name);
    m_facts.help = std::move(help);
}

Word &Word::word(const std::string &name, const std::string &help)
{
    return *m_words.emplace_back(std::make_unique<Word>(name, help));
}

Word &Word::below(std::string_view name)
{
    return **std::ranges::find(m_words, name, [](const auto &word) { return word->m_facts.name; });
}

Option &Word::add(const std::string &names, Option::Target target, const std::string &help)
{
    return m_options.emplace_back(names, target, help);
}

Option &Word::flag(const std::string &names, bool &value, const std::string &help)
{
    return add(names, &value, help);
}

Option &Word::option(const std::string &names, std::string &value, const std::string &help)
{
    return add(names, &value, help);
}

Option &Word::option(const std::string &names, std::optional<std::string> &value, const std::string &help)
{
    return add(names, &value, help);
}

Option &Word::option(const std::string &names, Names &values, const std::string &help)
{
    return add(names, &values, help);
}

Option &Word::option(const std::string &names, int32_t &value, Bounds bounds, const std::string &help)
{
    bounds.most = std::min<uint64_t>(bounds.most, std::numeric_limits<int32_t>::max());
    return add(names, &value, help).within(bounds);
}

Option &Word::option(const std::string &names, uint32_t &value, Bounds bounds, const std::string &help)
{
    bounds.most = std::min<uint64_t>(bounds.most, std::numeric_limits<uint32_t>::max());
    return add(names, &value, help).within(bounds);
}

Option &Word::option(const std::string &names, uint64_t &value, Bounds bounds, const std::string &help)
{
    return add(names, &value, help).within(bounds);
}

Option &Word::option(const std::string &names, double &value, RealBounds bounds, const std::string &help)
{
    return add(names, &value, help).within(bounds);
}

Option &Word::bytes(const std::string &names, uint64_t &value, const std::string &help)
{
    return add(names, Option::Bytes{&value}, help);
}

Word &Word::group(std::string heading)
{
    m_facts.group = std::move(heading);
    return *this;
}

Word &Word::about(std::string text)
{
    m_facts.about = std::move(text);
    return *this;
}

Word &Word::example(std::string line)
{
    m_facts.examples.push_back(std::move(line));
    return *this;
}

Word &Word::runs(std::function<int()> body)
{
    m_body = std::move(body);
    return *this;
}

Word &Word::refuses(std::function<std::string()> reason)
{
    m_reason = std::move(reason);
    return *this;
}

Word &Word::launches()
{
    m_facts.launches = true;
    return *this;
}

Word &Word::usageCode(int code)
{
    m_facts.usageCode = code;
    return *this;
}

Word &Word::keepsToItself()
{
    m_facts.keepsToItself = true;
    return *this;
}

const Word *Word::find(std::string_view name) const
{
    for (const auto &word : m_words)
        if (word->facts().name == name)
            return word.get();
    return nullptr;
}

} // namespace tool
