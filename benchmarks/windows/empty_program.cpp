// The least that a program with a DLL costs: loads one and ends.
#include <windows.h>

int main() {
    return LoadLibraryW(L"empty_library.dll") != nullptr ? 0 : 1;
}
