// Asio starts Winsock wherever its io_context is included, even while a DLL is loaded, where that
// is not allowed. There is no socket in this program; without Winsock one library less is loaded.
#include <winsock2.h>

int WSAAPI WSAStartup(WORD /*version*/, WSADATA * /*data*/) {
    return 0;
}

int WSAAPI WSACleanup() {
    return 0;
}
