// kivcs2 caption: the command line, and decode.
#include "Words/Caption.h"

#include "Captions/Services.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"

#include <memory>
#include <sstream>

namespace tool
{
namespace
{

using Arguments = std::shared_ptr<CaptionArguments>;

int captionDecode(const CaptionArguments &arguments)
{
    std::vector<CaptionPair> pairs;
    for (const std::string &argument : arguments.words)
    {
        std::string text = argument;
        if (argument == "-")
        {
            const std::vector<uint8_t> bytes = readWhole("-");
            text.assign(bytes.begin(), bytes.end());
        }
        std::istringstream stream{text};
        for (std::string word; stream >> word;)
            pairs.push_back(parseCaptionPair(word));
    }
    if (pairs.empty())
        throw Failure(kExitMalformed, "no pairs to decode");
    if (arguments.json)
    {
        JsonArray array;
        for (const CaptionPair pair : pairs)
            array.add(toJson(pair));
        array.close();
        return kExitYes;
    }
    Table table{"Pair", "Parity", "Meaning"};
    for (const CaptionPair pair : pairs)
        table.add({pair.hex(), pair.hasOddParity() ? "odd" : "wrong",
                   pair.words() + (pair.isCommandOfField2() ? ", in field 2" : "")});
    table.print();
    return kExitYes;
}

void addServiceOption(Word &word, const Arguments &arguments)
{
    word.option("--service", arguments->service, "Only these services: CC1, T1, S1, or several with commas")
        .suggests("services", serviceNames);
}

void addKeepGoing(Word &word, const Arguments &arguments)
{
    word.flag("--keep-going", arguments->keepGoing,
              "Report lost lines, but end with the exit code of a complete file")
        .excludes("--strict");
}

void describeInfo(Word &info, const Arguments &arguments)
{
    addReadingOptions(info, arguments->reading);
    info.example("kivcs2 caption info programme.scc");
}

void describeShow(Word &show, const Arguments &arguments)
{
    addReadingOptions(show, arguments->reading);
    addKeepGoing(show, arguments);
    show.flag("--captions", arguments->captions, "The captions as a viewer sees them");
    addServiceOption(show, arguments);
    show.option("--from", arguments->from, "The first timecode to show");
    show.option("--to", arguments->to, "The last timecode to show");
    show.example("kivcs2 caption show programme.mcc --captions | head");
}

void describeAt(Word &at, const Arguments &arguments)
{
    addReadingOptions(at, arguments->reading);
    addKeepGoing(at, arguments);
    addServiceOption(at, arguments);
    at.option("timecode", arguments->timecode, "HH:MM:SS:FF or HH:MM:SS;FF").required();
    at.example("kivcs2 caption at programme.mcc \"01:00:05;00\"");
}

void describeDecode(Word &decode, const Arguments &arguments)
{
    decode.option("pairs", arguments->words, "Four hexadecimal digits each; - reads standard input")
        .required();
    decode.example("kivcs2 caption decode 9420 94ae c849");
}

void describeVerify(Word &verify, const Arguments &arguments)
{
    addReadingOptions(verify, arguments->reading);
    verify.option("--most", arguments->most, {0, UINT64_MAX},
                  "Rows of faults to show; without it 20 on a terminal, all elsewhere");
    verify.flag("--fix-parity", arguments->fixParity, "The source's pairs were given odd parity");
    verify.option("--against", arguments->against, "The SCC or MCC file it was made from").isFile();
    verify.example("kivcs2 caption verify programme.mcc --against programme.scc");
}

} // namespace

void addCaptionCommand(Word &root, Context &context)
{
    Word &caption = root.word("caption", "SCC and MCC caption files, and live captions over RTP");
    caption.group(kGroupCaptions);
    caption.about(
        "Files: - is standard input or output. Faults of a file go to standard error, one line for each\n"
        "cause, and with --json every fault; words that read continue after it and exit 3 if a part was "
        "lost.");
    const auto arguments = std::make_shared<CaptionArguments>();
    const auto word = [&, arguments](const char *name, const char *help,
                                     int (*body)(const CaptionArguments &)) -> Word &
    {
        return caption.word(name, help)
            .runs(
                [&context, arguments, body]
                {
                    arguments->json = context.json;
                    return body(*arguments);
                });
    };
    describeInfo(word("info", "What a file holds, with every caption service in it", captionInfo), arguments);
    describeShow(word("show", "Timecode, pairs, control codes in words, and text", captionShow), arguments);
    describeAt(word("at", "The pairs of one frame and what is on the screen (exit 1: none)", captionAt),
               arguments);
    describeDecode(word("decode", "CEA-608 pairs in words", captionDecode), arguments);
    addConvertWord(caption, context);
    describeVerify(
        word("verify", "Check a file and list every fault (exit 1: there are faults)", captionVerify),
        arguments);
    addPlayWord(caption, context);
    addMonitorWord(caption, context);
}

} // namespace tool
