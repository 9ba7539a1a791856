/* Quorl: what a host needs on a platform without window messages and drive letters.
 *
 * SPDX-License-Identifier: Apache-2.0
 */
#ifndef QUORL_HOST_H
#define QUORL_HOST_H

#include <quorl/quorl.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A host window: a queue of messages and one thread of its own that hands them to proc, one at a time, in order.
   A posted message returns to the library at once; a sent one returns when proc has returned. A text in lParam is
   NUL-terminated and stays valid until proc returns. The queue holds 10 000 messages; when it is full, WM_FILE_NAME is
   what gets dropped, never a status. */
typedef void (*QuorlWindowProc)(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam);

/* NULL when the window's thread cannot be started or proc is NULL. */
QUORL_EXPORT QuorlWindow CreateHostWindow(QuorlWindowProc proc, void* context);

/* Waits for a running proc, unless called from that proc itself; drops what is queued. */
QUORL_EXPORT void DestroyHostWindow(QuorlWindow window);

/* Which local directory stands behind "X:\". At load only C: is mapped, to "/". For the next path that is resolved.
   1; 0 for a bad letter or no such directory. */
QUORL_EXPORT uint32_t MapDrive(char letter, const char* directory);

/* Sender: bytes on the wire per second in kbit/s, IP and Ethernet framing included. 0, the value at load, is the
   system's own fixed pacing. For the next StartSend. Always 1. */
QUORL_EXPORT uint32_t SetSendRate(uint32_t kilobitsPerSecond);

/* Sender: the receivers collected so far. Fills at most capacity addresses, returns how many there are. */
QUORL_EXPORT uint32_t GetReceivers(uint32_t* addresses, uint32_t capacity);

/* Which rules a role follows from its next Init on. 0, at load: classic, the system's own rules to the letter.
   1: robust, the same datagrams, but lost ones are repeated where one side can cure it, the receiver is bound to one
   sender, and waits end early when what they wait for has come. Robust and classic ends work together.
   1; 0 for an unknown profile. */
QUORL_EXPORT uint32_t SetProfile(uint32_t profile);

/* Receiver: a local directory that everything received stays under, whatever target the sender names; it may be
   reached through links, and nothing beneath it is. The room for a transfer is looked for on the file system that
   holds it. NULL or "" (the value at load) follows the sender's target. Takes effect at the next announced transfer.
   1; 0 when it is no directory. */
QUORL_EXPORT uint32_t SetReceiveRoot(const char* directory);

/* Receiver: the only sender to listen to, IPv4 in network byte order; datagrams from any other address are dropped and
   counted. 0, the value at load: anyone; the robust profile then keeps to the one whose announcement it has accepted,
   until that transfer is over. For the next StartReceive. Always 1. */
QUORL_EXPORT uint32_t SetSender(uint32_t address);

/* The state of a transfer, for a host that wants to know more than the messages tell. Any thread may ask at any time.
 */

/* The phases of a role. */
enum {
  QUORL_PHASE_IDLE = 0,      /* nothing announced */
  QUORL_PHASE_STREAMING = 1, /* every block travels once */
  QUORL_PHASE_FINISHING = 2, /* [sender] every block has travelled, the receivers count what they miss */
  QUORL_PHASE_REPAIRING = 3, /* missing blocks travel again */
  QUORL_PHASE_OVER = 4       /* the transfer has ended on this side */
};

typedef struct {
  uint32_t phase;          /* QUORL_PHASE_ */
  uint32_t complete;       /* 1 when every block of every announced file is on the disk */
  uint32_t files;          /* announced */
  uint32_t failedFiles;    /* could not be opened or written */
  uint32_t status;         /* the first QUORL_STATUS_ failure, or 0 */
  uint64_t blocksExpected; /* announced */
  uint64_t blocksStored;   /* on the disk */
  uint64_t blocksMissing;  /* announced and not on the disk */
  uint32_t senderAddress;  /* network byte order; 0 while none was heard */
  char currentFile[520];   /* relative name of the file of the latest block, as announced: divided by backslashes and
                              beginning with one, NUL-terminated; "" while none has come */
  char askedTarget[520];   /* the directory that the sender names as the target, whether it is used or not; "" when it
                              names none, or one of the special folders */
} QuorlReceiveState;

/* Receiver: what has been received so far, or by the last transfer. 1; 0 when state is NULL. */
QUORL_EXPORT uint32_t GetReceiveState(QuorlReceiveState* state);

typedef struct {
  uint32_t phase;        /* QUORL_PHASE_ */
  uint32_t files;        /* announced */
  uint64_t blocksTotal;  /* announced */
  uint64_t blocksSent;   /* by the stream */
  uint64_t blocksResent; /* by the repair */
  uint32_t shrunkFiles;  /* files that were shorter when read than when announced; nobody can complete them */
} QuorlSendState;

/* Sender: how far the transfer is. 1; 0 when state is NULL. */
QUORL_EXPORT uint32_t GetSendState(QuorlSendState* state);

/* What a sender knows of one receiver. */
enum {
  QUORL_RECEIVER_WAITING = 0,  /* listening, or waiting for its turn to ask */
  QUORL_RECEIVER_MASTER = 1,   /* asking for its missing blocks */
  QUORL_RECEIVER_COMPLETE = 2, /* said that it lacks nothing */
  QUORL_RECEIVER_FAILED = 3    /* has a status */
};

typedef struct {
  uint32_t address; /* network byte order */
  uint32_t state;   /* QUORL_RECEIVER_ */
  uint32_t status;  /* QUORL_STATUS_ of a failed one, else 0 */
  uint32_t missing; /* blocks it missed when it was last asked */
} QuorlReceiverState;

/* Sender: one row for each receiver collected, in the order of GetReceivers. Fills at most capacity rows, returns how
   many there are. */
QUORL_EXPORT uint32_t GetReceiverStates(QuorlReceiverState* rows, uint32_t capacity);

/* One thing that a role has counted. */
typedef struct {
  const char* name; /* static text: the role, what is counted and why, such as "receiver.dropped.stranger" */
  uint64_t value;
} QuorlCounter;

/* Both roles, the sender's counters first: what each has counted since its latest Init, or 0 before the first; those
   that end in "high_water" are the most that was waiting at any time. Fills at most capacity counters, returns how
   many there are, which never changes, nor does their order. Any thread. */
QUORL_EXPORT uint32_t GetCounters(QuorlCounter* counters, uint32_t capacity);

#ifdef __cplusplus
}
#endif

#endif
