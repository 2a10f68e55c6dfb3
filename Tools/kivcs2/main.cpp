// kivcs2: timecode, captions, formats and text from the shell; a host of the public headers.
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/EndSignals.h"
#include "Terminal/LibraryLog.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCoreServices2.h>

#include <csignal>
#include <new>

namespace
{

constexpr const char *kVersion = "kivcs2 " KIVCS2_TOOL_VERSION;

constexpr const char *kExitCodes = "Exit codes: 0 yes, 1 no, 2 usage, 3 malformed input, 4 input or output,\n"
                                   "5 not on this machine, 6 time-out, 70 internal.";

// All words, in the order of the help.
void addWords(tool::Word &root, tool::Context &context)
{
    root.flag("--json", context.json, "Write JSON for programs instead of tables");
    root.about(kExitCodes);
    for (const char *example :
         {"kivcs2 tc add 10:00:00:00 250 --rate 25", "kivcs2 caption info programme.scc",
          "kivcs2 caption convert programme.scc programme.mcc",
          "kivcs2 caption verify programme.mcc --against programme.scc",
          "kivcs2 caption show programme.mcc --captions | head",
          "kivcs2 run --timeout 10 -- ffprobe programme.mxf", "kivcs2 status 0x8000000b"})
        root.example(example);
    tool::addTimecodeCommand(root, context);
    tool::addCaptionCommand(root, context);
    tool::addCDPCommand(root, context);
    tool::addFormatCommand(root, context);
    tool::addRateCommand(root, context);
    tool::addFrameCommand(root, context);
    tool::addAudioCommand(root, context);
    tool::addCodecCommand(root, context);
    tool::addCurveCommand(root, context);
    tool::addChecksumCommand(root, context);
    tool::addTextCommand(root, context);
    tool::addJSONCommand(root, context);
    tool::addPipeCommand(root, context);
    tool::addSharedMemoryCommand(root, context);
    tool::addSensorsCommand(root, context);
    tool::addRunCommand(root, context);
    tool::addSystemCommand(root, context);
    tool::addDoctorCommand(root, context);
    tool::addServicesCommand(root, context);
    tool::addNetCommand(root, context);
    tool::addStatusCommand(root, context);
    tool::addGenerateCommand(root);
    tool::addHelpCommand(root);
}

int run(int argc, char **argv)
{
    tool::Context context;
    tool::Word root{"kivcs2", "Timecode, captions, video formats and text for broadcast files."};
    addWords(root, context);
    const tool::Asked asked = tool::parse(root, kVersion, argc, argv);
    if (asked.word == nullptr)
    {
        tool::out().write(asked.text);
        return tool::kExitYes;
    }
    if (asked.word->facts().launches)
        tool::restoreWriteSignals(); // children inherit the signals as this command got them
    tool::capLibraryLog();           // before the task server inherits it
    (void)kivCS2_initWithTaskServer(asked.word->facts().launches); // always succeeds
    return asked.word->run();
}

// Returns true if the command line requests JSON; needed before the line is parsed.
bool isJsonAsked(int argc, char **argv)
{
    for (int index = 1; index < argc && std::string_view{argv[index]} != "--"; ++index)
        if (std::string_view{argv[index]} == "--json")
            return true;
    return false;
}

// Reports the failure that ends the command: a line for people, and a document for programs.
int fail(int code, const std::string &text, const tool::Json &document, bool json)
{
    try
    {
        if (json)
            tool::writeFailure(document);
        tool::out().flush(); // results before the failure are still useful
    }
    catch (...)
    {
        // The failure below is the one that matters.
    }
    tool::tellLeftOutMessages();
    tool::note(text);
    return code;
}

int failInside(const std::string &text, bool json)
{
    return fail(tool::kExitInternal, text, tool::errorJson(tool::kExitInternal, text), json);
}

} // namespace

int main(int argc, char **argv)
{
    // If the reader has gone, a write fails, which ends the command silently.
    tool::ignoreWriteSignals();
    tool::occupyStandardStreams();
    const bool json = isJsonAsked(argc, argv);
    try
    {
        const int code = run(argc, argv);
        tool::tellLeftOutMessages();
        tool::out().flush();
        return code;
    }
    catch (const tool::ReaderGone &)
    {
        return tool::kExitYes;
    }
    catch (const tool::Ended &)
    {
        return tool::kExitYes;
    }
    catch (const tool::Failure &failure)
    {
        return fail(failure.code(), failure.what(), failure.json(), json);
    }
    catch (const std::bad_alloc &)
    {
        return failInside("out of memory", json);
    }
    catch (const std::exception &error)
    {
        return failInside(std::string{"internal fault: "} + error.what(), json);
    }
}
