/* A host as short as one can be: sends one file or directory to everyone who listens.
 *
 *   cc send.c $(pkg-config --cflags --libs quorl) -o send
 *   ./send /srv images 192.168.1.10 27001
 */
#include <arpa/inet.h>
#include <quorl/host.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

int main(int argc, char** argv) {
  char path[QUORL_PATH_LENGTH];
  const char* paths[] = {path};
  QuorlSendState state = {.size = sizeof state};
  uint32_t failed[QUORL_ERR_INFO_VALUES];
  if (argc != 5 || !MapDrive('D', argv[1])) return fputs("usage: send DIRECTORY NAME INTERFACE PORT\n", stderr), 2;
  snprintf(path, sizeof path, "D:\\%s", argv[2]);
  SetProfile(1);
  SetSendRate(100000);
  SetSubDirTrans(1);
  if (!InitServer(NULL, 0, (uint32_t)atoi(argv[4]), inet_addr(argv[3])))
    return fputs("no sockets, or busy\n", stderr), 1;
  uint32_t receivers = GetReceivers(NULL, 0);
  if (receivers == 0 || SetSelectFiles(paths, 1, NULL) != 1) return fputs("nobody there, or no such name\n", stderr), 1;
  StartSend();
  do {
    usleep(100000);
    GetSendState(&state);
  } while (state.phase != QUORL_PHASE_OVER && state.phase != QUORL_PHASE_IDLE);
  GetErrInfo(failed);
  DeInitServer();
  printf("%u of %u receivers failed\n", failed[0], receivers);
  return failed[0] == 0 ? 0 : 1;
}
