/* A host on Windows: a window that shows what a transfer does, and a message loop.
 *
 *   x86_64-w64-mingw32-gcc host.c -I include -L . -lQuorl -lws2_32 -o host.exe
 *   host receive 192.168.1.11 27001
 *   host send 192.168.1.10 27001 D:\inbox C:\images\room
 *
 * The sender names the directory on the receivers, here D:\inbox. Built with -DROBUST and -lQuorlHost it asks for the
 * robust profile, which host.h describes; everything else stays the same.
 */
#include <winsock2.h>

#include <quorl/quorl.h>
#ifdef ROBUST
#include <quorl/host.h>
#endif
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The host's own message: the transfer is over, wParam is its status. */
#define OVER (WM_APP + 1)

static void Show(HWND window, const char* what, uintptr_t number, const char* name) {
  char line[700];
  snprintf(line, sizeof line, "%s %lu %s", what, (unsigned long)number, name);
  SetWindowTextA(window, line);
  puts(line);
  fflush(stdout);
}

/* Roles are not taken down in here: the library may be waiting for this procedure to return. */
static LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  static int files;
  switch (message) {
    case WM_TASK_INFO: Show(window, "starts", (uintptr_t)lParam, "blocks"); return 0;
    case WM_FILE_NAME:
      if (files++ % 100 == 0) Show(window, "file of block", (uintptr_t)files, (const char*)lParam);
      return 0;
    case WM_CLIENT_ERR: Show(window, "a receiver failed with", wParam, ""); return 0;
    case WM_TRANS_STATUS:
      /* Anything above 1 is the path of a file that the sender would like to see opened. */
      Show(window, "status", wParam, lParam > 1 ? (const char*)lParam : lParam == 1 ? "complete" : "");
      /* A file that could not be written does not end a transfer. */
      if (wParam != QUORL_STATUS_FILE_UNWRITABLE) PostMessageA(window, OVER, wParam, lParam);
      return 0;
    case WM_CLOSE: PostQuitMessage(3); return 0;
    default: return DefWindowProcA(window, message, wParam, lParam);
  }
}

static HWND MakeWindow(void) {
  WNDCLASSA type = {0};
  type.lpfnWndProc = OnMessage;
  type.hInstance = GetModuleHandleA(NULL);
  type.hbrBackground = (HBRUSH)(COLOR_WINDOW + 1);
  type.lpszClassName = "QuorlExample";
  RegisterClassA(&type);
  return CreateWindowA(type.lpszClassName, "Quorl", WS_OVERLAPPEDWINDOW | WS_VISIBLE, CW_USEDEFAULT, CW_USEDEFAULT, 600,
                       80, NULL, NULL, type.hInstance, NULL);
}

static int Receive(HWND window, char** arguments) {
  if (!InitClient(window, 0, (uint32_t)atoi(arguments[1]), inet_addr(arguments[0]))) return 0;
  StartReceive();
  Show(window, "listens on port", (uintptr_t)atoi(arguments[1]), "");
  return 1;
}

static int Send(HWND window, char** arguments, int count) {
  SetSubDirTrans(1);
  SetTargetPath(0xFFFFFFFF, arguments[2]);
  if (!InitServer(window, 0, (uint32_t)atoi(arguments[1]), inet_addr(arguments[0]))) return 0;
  if (SetSelectFiles((const char* const*)arguments + 3, (uint32_t)count - 3, NULL) != 1) return 0;
  StartSend();
  return 1;
}

/* Handles messages until the transfer is over; its status. */
static int Loop(void) {
  MSG message;
  while (GetMessageA(&message, NULL, 0, 0) > 0) {
    if (message.message == OVER) return (int)message.wParam;
    DispatchMessageA(&message);
  }
  return 3;
}

int main(int count, char** arguments) {
  const int sends = count > 5 && strcmp(arguments[1], "send") == 0;
  if (!sends && (count != 4 || strcmp(arguments[1], "receive") != 0))
    return fputs("host receive INTERFACE PORT | host send INTERFACE PORT TARGET PATH...\n", stderr), 2;
#ifdef ROBUST
  SetProfile(1);
#endif
  HWND window = MakeWindow();
  int result = 1;
  if (sends ? Send(window, arguments + 2, count - 2) : Receive(window, arguments + 2)) result = Loop();
  if (sends) {
    uint32_t failed[401];
    Show(window, "receivers that failed:", GetErrInfo(failed), "");
  }
  DeInitServer();
  DeInitClient();
  return result;
}
