// kivcs2 json: a property list of the given words, as the library writes it.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2Dictionary.h>
#include <KIVCoreServices2/KIVCS2JSON.h>
#include <KIVCoreServices2/KIVCS2String.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace tool
{
namespace
{

struct Release
{
    void operator()(const void *object) const
    {
        CFRelease(object);
    }
};
using String = std::unique_ptr<const std::remove_pointer_t<CFStringRef>, Release>;

// The library does not escape, so characters that need escaping are refused in a text for programs.
String makeString(std::string_view text)
{
    const bool needsEscape = std::ranges::any_of(
        text, [](char c) { return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20; });
    if (needsEscape)
        throw Failure(kExitMalformed, "\"" + visible(text) +
                                          "\": quotes, backslashes and control characters are written as "
                                          "they are, which is not JSON");
    CFStringRef string = nullptr;
    const KIVCS2Status status = kivCS2String_createCFStringWithEncoding(
        text.data(), static_cast<uint32_t>(text.size()), &string, KIVCS2StringEncoding_UTF8);
    if (KIVCS2_FAILED(status)) // the strict reader's status for bytes that the encoding does not allow
        throw Failure(kExitMalformed,
                      "\"" + visible(text) + "\" is not valid utf8 (" + statusText(status) + ")");
    return String{string};
}

// The parsed number of `text`, if it fits the 32 bits of a Number.
template <class Number, class Parsed>
Number checked(std::optional<Parsed> value, std::string_view text, std::string_view type)
{
    using Limits = std::numeric_limits<Number>;
    if (!value)
        throw Failure(kExitUsage, "\"" + visible(text) + "\" is not a valid " + std::string{type});
    if (*value < static_cast<Parsed>(Limits::lowest()) || *value > static_cast<Parsed>(Limits::max()))
        throw Failure(kExitUsage, "\"" + visible(text) + "\" does not fit the 32 bits of a number");
    return static_cast<Number>(*value);
}

bool parseFlag(std::string_view text)
{
    if (text != "true" && text != "false")
        throw Failure(kExitUsage, "\"" + visible(text) + "\" is neither true nor false");
    return text == "true";
}

// key=text, key:int=5, key:float=1.5 or key:bool=true.
void store(KIVCS2Dictionary &dictionary, std::string_view word)
{
    const size_t equals = word.find('=');
    if (equals == std::string_view::npos)
        throw Failure(kExitUsage, "\"" + visible(word) + "\" has no \"=\" between key and value");
    std::string_view name = word.substr(0, equals);
    const std::string_view value = word.substr(equals + 1);
    const auto endsWithType = [&name](std::string_view suffix)
    {
        const bool ends = name.ends_with(suffix);
        if (ends)
            name.remove_suffix(suffix.size());
        return ends;
    };
    const bool isInteger = endsWithType(":int");
    const bool isFraction = !isInteger && endsWithType(":float");
    const bool isFlag = !isInteger && !isFraction && endsWithType(":bool");
    const String key = makeString(name);
    constexpr KIVCS2DictionaryKey kKind = KIVCS2DictionaryKey_CFString;
    KIVCS2Status status = KIVCS2STATUS_OK;
    if (isInteger)
        status = kivCS2Dictionary_setInteger(&dictionary, key.get(),
                                             checked<int32_t>(signedNumber(value), value, "integer"), kKind);
    else if (isFraction)
        status = kivCS2Dictionary_setFloat(&dictionary, key.get(),
                                           checked<float>(realNumber(value), value, "finite number"), kKind);
    else if (isFlag)
        status = kivCS2Dictionary_setBool(&dictionary, key.get(), parseFlag(value) ? 1 : 0, kKind);
    else
        status = kivCS2Dictionary_setCFValue(&dictionary, key.get(), makeString(value).get(), kKind);
    check(status, "\"" + visible(name) + "\" cannot be stored");
}

// Holds the record for its lifetime.
class OwnDictionary
{
public:
    OwnDictionary()
    {
        check(kivCS2Dictionary_init(&record), "dictionary");
    }
    OwnDictionary(const OwnDictionary &) = delete;
    OwnDictionary &operator=(const OwnDictionary &) = delete;
    ~OwnDictionary()
    {
        (void)kivCS2Dictionary_free(&record); // not null: cannot fail
    }

    KIVCS2Dictionary record{};
};

int writeJSON(const std::vector<std::string> &words, bool showPasses)
{
    OwnDictionary dictionary;
    for (const std::string &word : words)
        store(dictionary.record, word);

    uint32_t measured = 0;
    check(kivCS2JSON_createFromPlist(dictionary.record.m_dictionary, nullptr, &measured), "measuring");
    std::string text(size_t{measured} + 1, '\0');
    char *cursor = text.data();
    uint32_t written = 0;
    check(kivCS2JSON_createFromPlist(dictionary.record.m_dictionary, &cursor, &written), "writing");
    out().write(visibleJson({text.data(), written}) + "\n");
    if (showPasses)
        note("measured " + count(measured, "byte") + ", wrote " + count(written, "byte"));
    return kExitYes;
}

} // namespace

void addJSONCommand(Word &root, Context &)
{
    const auto words = std::make_shared<Names>();
    const auto passes = std::make_shared<bool>(false);
    Word &word = root.word("json", "Write keys and values as a JSON object").group(kGroupTexts);
    word.about("Entries: key=text, key:int=5, key:float=1.5, key:bool=true (a number, 1 or 0).\n"
               "Texts that JSON would have to escape are refused.");
    word.option("entries", *words, "Keys and values; of one key the last value counts").required();
    word.flag("--passes", *passes, "Report the measured and the written bytes on standard error");
    word.example("kivcs2 json name=\"clean feed\" rate:float=29.97 drop:bool=true");
    word.runs([words, passes] { return writeJSON(*words, *passes); });
}

} // namespace tool
