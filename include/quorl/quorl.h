/* Quorl: sends a selection of files from one machine to a room of machines over IPv4 UDP multicast.
 *
 * The thirteen functions of the library. One process may hold both roles at once: the sender's functions and the
 * receiver's functions drive two independent objects. Call the sender's from one thread and the receiver's from one
 * thread. Addresses are IPv4, in network byte order, as inet_addr(3) yields them.
 *
 * Sender:    InitServer, SetSubDirTrans, SetTargetPath, SetSelectFiles, StartSend, (StopSend), GetErrInfo, DeInitServer
 * Receiver:  InitClient, StartReceive, (messages arrive), DeInitClient
 *
 * SPDX-License-Identifier: Apache-2.0
 */
#ifndef QUORL_QUORL_H
#define QUORL_QUORL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* On Windows the functions have plain names and the C calling convention, whatever a host's compiler defaults to. */
#if defined(_WIN32)
#define QUORL_EXPORT
#define QUORL_CALL __cdecl
#else
#define QUORL_EXPORT __attribute__((visibility("default")))
#define QUORL_CALL
#endif

/* What the system counts in. */
enum {
  QUORL_BLOCK_SIZE = 4254,                         /* bytes of file data in every block but a file's last */
  QUORL_NAME_SIZE = 520,                           /* bytes of a name that travels, with its terminator */
  QUORL_PATH_LENGTH = 260,                         /* characters of a local path at most */
  QUORL_SHORTEST_PATH = 3,                         /* characters of a selected path at least: a drive and its root */
  QUORL_RECEIVERS = 200,                           /* receivers of one sender at most */
  QUORL_ERR_INFO_VALUES = 1 + 2 * QUORL_RECEIVERS, /* what GetErrInfo may fill: a count, a pair for each receiver */
  QUORL_EMPTY_DIRECTORIES = 40,                    /* empty directories that one transfer announces at most */
  QUORL_DEFAULT_PORT = 27001
};

/* The targetFolder of SetTargetPath that stands for no special folder, but for targetPath itself. */
#define QUORL_TARGET_IS_PATH UINT32_C(0xFFFFFFFF)

/* The host window that gets the messages: an HWND on Windows, a CreateHostWindow result elsewhere. NULL, or a window
   that has been destroyed, is allowed everywhere and gets nothing. */
typedef void* QuorlWindow;

/* The messages. wParam and lParam carry what the comment says; the side in brackets. */
enum {
  WM_TASK_INFO = 1039,    /* a transfer starts: [sender] wParam receivers collected, [receiver] wParam files;
                             lParam blocks in all */
  WM_TRANS_STATUS = 1040, /* wParam a QUORL_STATUS_ code. [receiver] with 0: lParam 0 the sender stopped, 1 the transfer
                             is complete, anything else it is complete and lParam is the path of a file to open */
  WM_FILE_NAME = 1042,    /* lParam the name of the file of the block just sent or stored */
  WM_CLIENT_ERR = 1054    /* [sender] a receiver reported wParam, a QUORL_STATUS_ code; lParam its address */
};

/* The codes of WM_TRANS_STATUS, WM_CLIENT_ERR and GetErrInfo. */
enum {
  QUORL_STATUS_DONE = 0,               /* over, stopped or complete, see WM_TRANS_STATUS */
  QUORL_STATUS_TOO_MUCH_MISSING = 1,   /* GetErrInfo only: given up, more than 30 % of the blocks were missing */
  QUORL_STATUS_FILE_UNREADABLE = 32,   /* [sender] a file could not be read, or in the classic profile a
                                          repair block not be sent */
  QUORL_STATUS_DISK_FULL = 112,        /* [receiver] no room on the target drive */
  QUORL_STATUS_FILE_UNWRITABLE = 1001, /* [receiver] a file could not be opened, created or written */
  QUORL_STATUS_NOT_FIXED_DISK = 1002,  /* [receiver] the target is not on a local fixed disk */
  QUORL_STATUS_SEND_FAILED = 1003,     /* a datagram could not be sent */
  QUORL_STATUS_SENDER_LOST = 1004,     /* [receiver] no heartbeat from the sender for about 12 s */
  QUORL_STATUS_GROUP_BUSY = 1006,      /* [sender] another sender is active on the group; InitServer fails */
  QUORL_STATUS_PATH_TOO_LONG = 1007,   /* [receiver] a local path would exceed QUORL_PATH_LENGTH */
  QUORL_STATUS_TIMED_OUT = 1460        /* a receiver did not finish its repair, or nobody answered */
};

/* Sender: opens the sockets, looks for another sender on the group for 100 ms and collects the receivers that listen;
   takes about 0.9 s. groupAddress 0 is 235.9.2.9, groupPort (low 16 bits) 0 is QUORL_DEFAULT_PORT, localInterface 0 any
   interface. 1, or 0 when a socket could not be set up, another sender is active (WM_TRANS_STATUS 1006 is posted too)
   or nothing could be sent. */
QUORL_EXPORT uint32_t QUORL_CALL InitServer(QuorlWindow window, uint32_t groupAddress, uint32_t groupPort,
                                            uint32_t localInterface);

/* Receiver: opens the sockets; no thread runs yet. Arguments as for InitServer. 1, or 0 when a socket could not be
   set up. */
QUORL_EXPORT uint32_t QUORL_CALL InitClient(QuorlWindow window, uint32_t groupAddress, uint32_t groupPort,
                                            uint32_t localInterface);

/* Sender: closes the sockets. Always 1; harmless at any time. */
QUORL_EXPORT uint32_t QUORL_CALL DeInitServer(void);

/* Receiver: ends the receiver; waits at most 5 s for its threads. Always 1; harmless at any time. From a window's own
   procedure, inside the WM_TRANS_STATUS with the path of a file to open, it takes these 5 s: the thread that it waits
   for waits for the procedure. */
QUORL_EXPORT uint32_t QUORL_CALL DeInitClient(void);

/* Sender: chooses what travels: pathCount full paths of the form "C:\dir\name", files and directories mixed, each of
   QUORL_SHORTEST_PATH to QUORL_PATH_LENGTH bytes. They travel in that order, the files of a directory in the order of
   its file system, or in that of their names where SetProfile has chosen the robust profile before this call.
   autoOpenName, NULL or "" for none, names a file that the receivers' hosts are to open at the end; it begins with a
   backslash and fits into QUORL_NAME_SIZE.
   1 done; 2 a path is too long; 3 too short; 4 has no colon after its first character; 5 holds one of / * ? > < " | :
   further on; 6 no memory; 7 the list is built but something that cannot travel was left out: a name with one of these
   characters, or a path that is neither a file nor a directory. */
QUORL_EXPORT int32_t QUORL_CALL SetSelectFiles(const char* const* paths, uint32_t pathCount, const char* autoOpenName);

/* Sender: nonzero lists directories to any depth, 0 (the value at load) only their first level. For the next
   SetSelectFiles. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL SetSubDirTrans(uint32_t flag);

/* Sender: where receivers put the files: a special folder (0, the value at load: the desktop), or
   QUORL_TARGET_IS_PATH for targetPath itself, which fits into QUORL_NAME_SIZE. For the next StartSend. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL SetTargetPath(uint32_t targetFolder, const char* targetPath);

/* Sender: 1 when the latest SetSelectFiles left out a name that cannot travel, else 0. */
QUORL_EXPORT uint32_t QUORL_CALL GetIsHasInvalidChar(void);

/* Sender: announces the transfer (about 60 to 90 ms) and starts it; the rest is told by messages. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL StartSend(void);

/* Sender: stops the transfer and tells the receivers; takes 60 ms, and three seconds on a link that has stopped.
   Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL StopSend(void);

/* Receiver: starts to listen. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL StartReceive(void);

/* Receiver: does nothing; a receiver ends by itself or by DeInitClient. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL StopReceive(void);

/* Sender, after the end: the receivers that failed. errInfoBuffer has room for QUORL_ERR_INFO_VALUES: their number n,
   then n pairs of address and QUORL_STATUS_ code. Returns n. */
QUORL_EXPORT uint32_t QUORL_CALL GetErrInfo(uint32_t* errInfoBuffer);

#ifdef __cplusplus
}
#endif

#endif
