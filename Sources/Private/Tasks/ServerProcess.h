// The task server: its start in the host, and its own process.
#ifndef KIV_PRIVATE_TASKS_SERVER_PROCESS_H
#define KIV_PRIVATE_TASKS_SERVER_PROCESS_H

#include "Private/Tasks/ServerRecord.h"

[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_createServer();
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_childProcess();
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_exec(const char *command, char *const *argv);
void *kivCS2TaskServerPrv_readbackThread(void *argument);
void kivCS2TaskServerPrv_infanticide();

#endif
