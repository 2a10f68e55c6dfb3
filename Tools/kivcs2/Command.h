// How the parts of the command meet: each adds its own words to the command line and leaves behind
// what is to run.
#ifndef KIV_TOOL_COMMAND_H
#define KIV_TOOL_COMMAND_H

#include <CLI/CLI.hpp>

#include <functional>

namespace tool
{

struct Context
{
    bool json = false;        ///< --json: programs read the result
    bool taskServer = false;  ///< the word launches child processes
    std::function<int()> run; ///< set by the word that was given; its result is the exit code
};

void addTimecodeCommand(CLI::App &app, Context &context);
void addCaptionCommand(CLI::App &app, Context &context);
void addCDPCommand(CLI::App &app, Context &context);
void addFrameCommand(CLI::App &app, Context &context);
void addFormatCommand(CLI::App &app, Context &context);
void addCodecCommand(CLI::App &app, Context &context);
void addCurveCommand(CLI::App &app, Context &context);
void addAudioCommand(CLI::App &app, Context &context);
void addRateCommand(CLI::App &app, Context &context);
void addChecksumCommand(CLI::App &app, Context &context);
void addTextCommand(CLI::App &app, Context &context);
void addJSONCommand(CLI::App &app, Context &context);
void addDoctorCommand(CLI::App &app, Context &context);
void addSystemCommand(CLI::App &app, Context &context);
void addSharedMemoryCommand(CLI::App &app, Context &context);
void addSensorsCommand(CLI::App &app, Context &context);
void addRunCommand(CLI::App &app, Context &context);
void addPipeCommand(CLI::App &app, Context &context);
void addServicesCommand(CLI::App &app, Context &context);
void addNetCommand(CLI::App &app, Context &context);
void addStatusCommand(CLI::App &app, Context &context);

} // namespace tool

#endif
