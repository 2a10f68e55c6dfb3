// The interface between the parts of the command: each adds its own words, with their bodies, to
// the command line.
#ifndef KIV_TOOL_WORDS_H
#define KIV_TOOL_WORDS_H

#include "CommandLine/CommandLine.h"

namespace tool
{

struct Context
{
    bool json = false; ///< --json: programs read the result
};

/// The headings of kivcs2 --help.
constexpr const char *kGroupCaptions = "Timecode and captions";
constexpr const char *kGroupPictures = "Pictures and sound";
constexpr const char *kGroupTexts = "Files and texts";
constexpr const char *kGroupMachine = "This machine";
constexpr const char *kGroupNetwork = "Network";
constexpr const char *kGroupItself = "The command itself";

void addTimecodeCommand(Word &root, Context &context);
void addCaptionCommand(Word &root, Context &context);
void addCDPCommand(Word &root, Context &context);
void addFrameCommand(Word &root, Context &context);
void addFormatCommand(Word &root, Context &context);
void addCodecCommand(Word &root, Context &context);
void addCurveCommand(Word &root, Context &context);
void addAudioCommand(Word &root, Context &context);
void addRateCommand(Word &root, Context &context);
void addChecksumCommand(Word &root, Context &context);
void addTextCommand(Word &root, Context &context);
void addJSONCommand(Word &root, Context &context);
void addDoctorCommand(Word &root, Context &context);
void addSystemCommand(Word &root, Context &context);
void addSharedMemoryCommand(Word &root, Context &context);
void addSensorsCommand(Word &root, Context &context);
void addRunCommand(Word &root, Context &context);
void addPipeCommand(Word &root, Context &context);
void addServicesCommand(Word &root, Context &context);
void addNetCommand(Word &root, Context &context);
void addStatusCommand(Word &root, Context &context);
void addGenerateCommand(Word &root);
void addHelpCommand(Word &root);

} // namespace tool

#endif
