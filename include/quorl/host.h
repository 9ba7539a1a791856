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

/* The first member of every structure is its size. The host sets it to sizeof before the call, and the library fills no
   more bytes than that: structures only ever grow at their end, and so programs and libraries of different age go
   together. What this library does not know stays as it was. Of an array the first element's size counts, and stands in
   each that is filled. A size in which not even the first members have room fills nothing, and the answer is 0. */

/* A host window: a queue of messages and one thread of its own that hands them to proc, one at a time, in order.
   A posted message returns to the library at once; a sent one returns when proc has returned. A text in lParam is
   NUL-terminated and stays valid until proc returns. The queue holds 10 000 messages; when it is full, WM_FILE_NAME is
   what gets dropped, never a status. */
typedef void(QUORL_CALL* QuorlWindowProc)(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam);

/* NULL when the window's thread cannot be started or proc is NULL. */
QUORL_EXPORT QuorlWindow QUORL_CALL CreateHostWindow(QuorlWindowProc proc, void* context);

/* Waits for a running proc, unless called from that proc itself; drops what is queued. */
QUORL_EXPORT void QUORL_CALL DestroyHostWindow(QuorlWindow window);

/* Which local directory stands behind "X:\". At load only C: is mapped, to "/". For the next path that is resolved.
   1; 0 for a bad letter or no such directory. */
QUORL_EXPORT uint32_t QUORL_CALL MapDrive(char letter, const char* directory);

/* Sender: bytes on the wire per second in kbit/s, IP and Ethernet framing included. 0, the value at load, is the
   system's own fixed pacing. For the next StartSend; in the robust profile a rate also replaces that of a transfer that
   is under way, from its next block on. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL SetSendRate(uint32_t kilobitsPerSecond);

/* Receivers of one sender at most that takes part in coded symbols (SetProfile); of another one QUORL_RECEIVERS.
   GetErrInfo tells of as many as its buffer is for, GetReceiverStates of all. */
enum { QUORL_MOST_RECEIVERS = 2000 };

/* Sender: the receivers collected so far. Fills at most capacity addresses, returns how many there are. */
QUORL_EXPORT uint32_t QUORL_CALL GetReceivers(uint32_t* addresses, uint32_t capacity);

/* Sender, robust: who is expected to answer, so that InitServer need not wait for whoever may: it returns 50 ms after
   all of these count receivers are in the table, and what each of the table is able to is known as far as this host has
   said the same (SetCapabilities); without them it takes its 0.9 s as ever. addresses: IPv4 in network byte order;
   NULL: any count receivers. count 0: nobody in particular. For the next InitServer alone. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL SetExpectedReceivers(const uint32_t* addresses, uint32_t count);

/* Which rules a role follows from its next Init on. 0, at load: classic, the system's own rules to the letter.
   1: robust, the same datagrams, but lost ones are repeated where one side can cure it, the receiver is bound to one
   sender, and waits end early when what they wait for has come. Robust and classic ends work together.
   2: robust, and where the sender and everybody in its room follow it, and datagrams of 1472 bytes reach them all, the
   contents travel in coded symbols: one repair serves all receivers. In any other room it is 1.
   1; 0 for an unknown profile. */
QUORL_EXPORT uint32_t QUORL_CALL SetProfile(uint32_t profile);

/* Receiver: a local directory that everything received stays under, whatever target the sender names; it may be
   reached through links, and nothing beneath it is. The room for a transfer is looked for on the file system that
   holds it. NULL or "" (the value at load) follows the sender's target. Takes effect at the next announced transfer.
   1; 0 when it is no directory. */
QUORL_EXPORT uint32_t QUORL_CALL SetReceiveRoot(const char* directory);

/* Receiver: the only sender to listen to, IPv4 in network byte order; datagrams from any other address are dropped and
   counted. 0, the value at load: anyone; the robust profile then keeps to the one whose announcement it has accepted,
   until that transfer is over. For the next StartReceive. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL SetSender(uint32_t address);

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
  uint32_t size;                     /* sizeof(QuorlReceiveState) */
  uint32_t phase;                    /* QUORL_PHASE_ */
  uint32_t complete;                 /* 1 when every block of every announced file is on the disk */
  uint32_t files;                    /* announced */
  uint32_t failedFiles;              /* could not be opened or written */
  uint32_t status;                   /* the first QUORL_STATUS_ failure, or 0 */
  uint64_t blocksExpected;           /* announced */
  uint64_t blocksStored;             /* on the disk */
  uint64_t blocksMissing;            /* announced and not on the disk */
  uint32_t senderAddress;            /* network byte order; 0 while none was heard */
  char currentFile[QUORL_NAME_SIZE]; /* relative name of the file of the latest block, as announced: divided by
                                        backslashes and beginning with one, NUL-terminated; "" while none has come */
  char askedTarget[QUORL_NAME_SIZE]; /* the directory that the sender names as the target, whether it is used or not;
                                        "" when it names none, or one of the special folders */
  uint32_t otherSender;              /* robust, while nothing has been announced: whose transfer this receiver hears and
                                        takes no part in, network byte order; its blocks, or a heartbeat of the last
                                        12 s, which may be another room's; 0 for none */
  uint32_t isMaster;                 /* 1 while the sender has given it its turn to ask for what it misses */
  uint64_t bytesStored;              /* contents of files on the disk */
  uint32_t senderCapabilities;       /* what the latest sender that asked who listens is able to (SetCapabilities) */
  uint32_t underWay;                 /* 1 while nothing has been announced, and otherSender has said that it is in the
                                        middle of a transfer of this room */
  uint64_t underWayTotal;            /* its blocks, */
  uint64_t underWaySent;             /* and those sent when it said so */
  uint64_t blocksCame;               /* robust: blocks of the stream that have come, */
  uint64_t blocksLost;               /* and those that got lost on the way, so far */
} QuorlReceiveState;

/* Receiver: what has been received so far, or by the last transfer. 1; 0 when state is NULL or too small. */
QUORL_EXPORT uint32_t QUORL_CALL GetReceiveState(QuorlReceiveState* state);

typedef struct {
  uint32_t size;          /* sizeof(QuorlSendState) */
  uint32_t phase;         /* QUORL_PHASE_ */
  uint32_t files;         /* announced */
  uint32_t shrunkFiles;   /* files that were shorter when read than when announced; nobody can complete them */
  uint64_t blocksTotal;   /* announced */
  uint64_t blocksSent;    /* by the stream */
  uint64_t blocksResent;  /* by the repair */
  uint64_t blocksSkipped; /* left out of the stream (SetSkippedBlocks), so far */
  uint32_t otherSender; /* whom the latest InitServer has found active on the group, network byte order; 0 for nobody */
} QuorlSendState;

/* Sender: how far the transfer is. 1; 0 when state is NULL or too small. */
QUORL_EXPORT uint32_t QUORL_CALL GetSendState(QuorlSendState* state);

/* What a sender knows of one receiver. */
enum {
  QUORL_RECEIVER_WAITING = 0,  /* listening, or waiting for its turn to ask */
  QUORL_RECEIVER_MASTER = 1,   /* asking for its missing blocks */
  QUORL_RECEIVER_COMPLETE = 2, /* said that it lacks nothing */
  QUORL_RECEIVER_FAILED = 3,   /* has a status */
  QUORL_RECEIVER_SILENT = 4    /* robust: is to ask for its missing blocks, and has not been heard for a second */
};

typedef struct {
  uint32_t size;         /* sizeof(QuorlReceiverState) */
  uint32_t address;      /* network byte order */
  uint32_t state;        /* QUORL_RECEIVER_ */
  uint32_t status;       /* QUORL_STATUS_ of a failed one, else 0 */
  uint32_t missing;      /* blocks it missed when it was last asked */
  uint32_t capabilities; /* what it is able to (SetCapabilities); 0 of one that has not said */
} QuorlReceiverState;

/* Robust: the status of a receiver that has left in the middle of a transfer, or whose place another one took. */
enum { QUORL_STATUS_LEFT = 1223 };

/* Sender: one row for each receiver collected, in the order of GetReceivers. Fills at most capacity rows, returns how
   many there are. */
QUORL_EXPORT uint32_t QUORL_CALL GetReceiverStates(QuorlReceiverState* rows, uint32_t capacity);

/* One thing that a role has counted. */
typedef struct {
  uint32_t size;    /* sizeof(QuorlCounter) */
  const char* name; /* static text: the role, what is counted and why, such as "receiver.dropped.stranger" */
  uint64_t value;
} QuorlCounter;

/* Both roles, the sender's counters first: what each has counted since its latest Init, or 0 before the first; those
   that end in "high_water" are the most that was waiting at any time. Fills at most capacity counters, returns how
   many there are, which never changes, nor does their order. Any thread. */
QUORL_EXPORT uint32_t QUORL_CALL GetCounters(QuorlCounter* counters, uint32_t capacity);

/* What hosts say to each other, in the robust profile. Peers that know nothing of it take no notice. */

enum {
  QUORL_TEXT_SIZE = 1200 /* bytes of a word or a letter at most */
};

/* One of the library's own capabilities: takes contents in coded symbols (SetProfile). */
enum { QUORL_TAKES_SYMBOLS = 1 << 16 };

/* What this host is able to, bits that the hosts of both sides agree on; the library's own are the upper 16. For the
   next Init of either role. 0, at load: this host neither offers nor answers anything beyond the transfer. Always 1. */
QUORL_EXPORT uint32_t QUORL_CALL SetCapabilities(uint32_t capabilities);

typedef struct {
  uint32_t size;                 /* sizeof(QuorlText) */
  uint32_t address;              /* whose it is, network byte order */
  uint32_t length;               /* bytes in text */
  uint8_t text[QUORL_TEXT_SIZE]; /* anybody in the network can have written it */
} QuorlText;

/* Sender: says this to the hosts of all receivers, three times within 20 ms; some may miss it. 1; 0 when it is too
   long, or could not be sent, or this host has no capabilities. */
QUORL_EXPORT uint32_t QUORL_CALL SendWord(const void* text, uint32_t length);

/* Receiver: the next word of its sender, in the order of arrival. 1; 0 when there is none, or word is NULL or too
 * small. */
QUORL_EXPORT uint32_t QUORL_CALL TakeWord(QuorlText* word);

/* Receiver: a letter for the host of the latest sender that asked who listens. Letters arrive once and in order while
   that sender's session lasts, also after another InitClient here; one that is not heard within ten seconds is lost,
   with those behind it. 1; 0 when it is too long, when nobody has asked who would take it, or when 4096 are on their
   way. */
QUORL_EXPORT uint32_t QUORL_CALL SendLetter(const void* text, uint32_t length);

/* Receiver: letters that have not been heard yet. */
QUORL_EXPORT uint32_t QUORL_CALL GetLettersOnTheirWay(void);

/* Sender: the next letter, in the order of arrival, from InitServer to DeInitServer. 1; 0 as TakeWord. */
QUORL_EXPORT uint32_t QUORL_CALL TakeLetter(QuorlText* letter);

/* Some of a file's blocks. */
typedef struct {
  uint32_t size;  /* sizeof(QuorlBlocks) */
  uint32_t file;  /* number in the transfer, from 1 on, in the order of SurveySelection */
  uint32_t first; /* block, from 0 on */
  uint32_t count;
  uint64_t length; /* bytes of the file; for SetHeldBlocks */
} QuorlBlocks;

/* Sender: blocks that the stream leaves out, since every receiver has them; the repair serves them all the same. In
   ascending order. For the next StartSend alone. 1; 0 when blocks is NULL and count is not 0, or the order is not kept.
 */
QUORL_EXPORT uint32_t QUORL_CALL SetSkippedBlocks(const QuorlBlocks* blocks, uint32_t count);

/* Sender: hears of every block of the stream, in its order, on the stream's thread and before it leaves; of those left
   out it does not. NULL: nobody, the value at load. For the next StartSend. Always 1. */
typedef void(QUORL_CALL* QuorlBlockProc)(void* context, uint32_t file, uint32_t block, const uint8_t* bytes,
                                         uint32_t length);
QUORL_EXPORT uint32_t QUORL_CALL SetBlockListener(QuorlBlockProc proc, void* context);

/* Receiver, robust: blocks that are on the disk already, beneath the receive root or, of whole files, wherever the host
   keeps them; they count as stored. Of a file of which some are held and others are not, the file stands beneath the
   receive root. In ascending order. For the next transfer that is announced, alone, and only if that comes from the
   sender that asked latest who listens, before it asks again. 1; 0 as SetSkippedBlocks. */
QUORL_EXPORT uint32_t QUORL_CALL SetHeldBlocks(const QuorlBlocks* blocks, uint32_t count);

/* Receiver: what is on the disk of the latest transfer, in ascending order, also after DeInitClient. Fills at most
   capacity elements, returns how many there are. */
QUORL_EXPORT uint32_t QUORL_CALL GetStoredBlocks(QuorlBlocks* blocks, uint32_t capacity);

/* What would travel of a selection, and what stands in the way, to be asked before SetSelectFiles. */

enum {
  QUORL_SURVEY_FILE = 0,      /* would travel */
  QUORL_SURVEY_DIRECTORY = 1, /* would be walked; what is in it follows */
  QUORL_SURVEY_LEFT_OUT = 2   /* would not travel */
};

enum {
  QUORL_OBSTACLE_NONE = 0,
  /* In the way of files and directories that would travel all the same: */
  QUORL_OBSTACLE_UNREADABLE = 1,   /* cannot be opened or listed, or is not there; a file ends the transfer at its turn
                                      with QUORL_STATUS_FILE_UNREADABLE, a directory counts as empty */
  QUORL_OBSTACLE_DELETED_CHAR = 2, /* its own name holds one of * ? > <, which receivers delete from the names of files;
                                      from those of directories they do not, and store no file in such a one */
  QUORL_OBSTACLE_TOO_LONG = 3,     /* its path has more than 260 characters on every receiver, which refuses it */
  /* What is left out for: */
  QUORL_OBSTACLE_ILLEGAL_CHAR = 16,      /* its name holds a backslash, or on the first level one of / * ? > < " | : */
  QUORL_OBSTACLE_NAME_TOO_LONG = 17,     /* its name has more than 519 characters */
  QUORL_OBSTACLE_TOO_MANY_BLOCKS = 18,   /* more than can be numbered: more than 18 TB */
  QUORL_OBSTACLE_LINK_TO_DIRECTORY = 19, /* is not followed */
  QUORL_OBSTACLE_BROKEN_LINK = 20,       /* leads nowhere */
  QUORL_OBSTACLE_FIFO = 21,
  QUORL_OBSTACLE_SOCKET = 22,
  QUORL_OBSTACLE_DEVICE = 23,       /* a disk that is itself a path of the selection travels with its contents */
  QUORL_OBSTACLE_NOT_A_FILE = 24,   /* neither a file nor a directory, of whatever kind */
  QUORL_OBSTACLE_PATH_REFUSED = 25, /* a path of the selection that SetSelectFiles refuses for its form */
  QUORL_OBSTACLE_FILTERED = 26      /* the host's filter (SetSelectionFilter) */
};

typedef struct {
  uint32_t size;     /* of this structure in the library; fields may be added at its end */
  uint32_t kind;     /* QUORL_SURVEY_ */
  uint32_t obstacle; /* QUORL_OBSTACLE_ */
  uint64_t length;   /* bytes of a file; 0 when it cannot be opened */
  uint64_t blocks;   /* that the file travels in */
  const char* path;  /* "C:\data\photos\a.jpg" */
  const char* leaf;  /* the last component of path, which may hold a backslash */
  const char* name;  /* as it would travel, "\photos\a.jpg"; "" when it would not */
} QuorlSurveyEntry;

/* The texts are valid until proc returns. */
typedef void(QUORL_CALL* QuorlSurveyProc)(void* context, const QuorlSurveyEntry* entry);

/* Sender: SurveySelection and SetSelectFiles call proc, on the caller's thread, with each path that they come to; where
   it answers 0 they leave that out, a directory with all that is in it. NULL, at load: nothing is left out. Always 1.
 */
typedef uint32_t(QUORL_CALL* QuorlFilterProc)(void* context, const char* path, uint32_t isDirectory);
QUORL_EXPORT uint32_t QUORL_CALL SetSelectionFilter(QuorlFilterProc proc, void* context);

/* Sender: walks the paths as SetSelectFiles would with the same ones, after SetSubDirTrans with the same flag, and
   calls proc, on the caller's thread, for every file, directory and obstacle, in the order in which they would travel.
   Changes nothing; opens every file once. 1; 0 when proc is NULL, paths is NULL and count is not 0, or memory ran out.
 */
QUORL_EXPORT uint32_t QUORL_CALL SurveySelection(const char* const* paths, uint32_t count, uint32_t subDirTrans,
                                                 QuorlSurveyProc proc, void* context);

#ifdef __cplusplus
}
#endif

#endif
