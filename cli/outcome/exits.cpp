#include "cli/outcome/exits.h"

#include <array>

namespace quorl::cli {
namespace {

constexpr std::array EXITS = {
    ExitRow{0, "everything is complete"},
    ExitRow{1, "another error"},
    ExitRow{2, "wrong use"},
    ExitRow{3, "nobody there: no receiver answered, or no sender came in time"},
    ExitRow{4, "partly: some receivers or some files failed"},
    ExitRow{5, "every receiver failed"},
    ExitRow{6, "another sender is active on the group"},
    ExitRow{7, "files of this machine cannot be read or written"},
    ExitRow{8, "no room, or not a local disk"},
    ExitRow{9, "the other side is lost, has stopped, or timed out"},
    ExitRow{10, "what arrived is not what the manifest vouches for"},
    ExitRow{11, "every receiver is complete, but something of the selection could not travel"},
    ExitRow{12, "the program of --then failed"},
    ExitRow{129, "ended by a closed terminal"},
    ExitRow{130, "ended by Ctrl-C"},
    ExitRow{143, "ended by a request to terminate"},
};

}  // namespace

std::span<const ExitRow> ExitRows() {
  return EXITS;
}

std::string StatusInWords(uint32_t status) {
  switch (status) {
    case QUORL_STATUS_TOO_MUCH_MISSING: return "missed more than 30 % of the blocks and was given up";
    case QUORL_STATUS_FILE_UNREADABLE: return "a file could not be read";
    case QUORL_STATUS_DISK_FULL: return "no room on the disk";
    case QUORL_STATUS_FILE_UNWRITABLE: return "a file could not be created or written";
    case QUORL_STATUS_NOT_FIXED_DISK: return "the target is not on a local disk";
    case QUORL_STATUS_SEND_FAILED: return "the network refused to send";
    case QUORL_STATUS_SENDER_LOST: return "the sender was lost";
    case QUORL_STATUS_GROUP_BUSY: return "another sender is active on the group";
    case QUORL_STATUS_PATH_TOO_LONG: return "a path would be longer than 260 characters, or lead out of the target";
    case QUORL_STATUS_LEFT: return "left in the middle of the transfer";
    case NOT_AS_SENT: return "what arrived is not what was sent";
    case NAMES_TAKEN: return "has files of these names already";
    case QUORL_STATUS_TIMED_OUT: return "did not answer in time";
    default: return "failed for a reason that this version does not know";
  }
}

}  // namespace quorl::cli
