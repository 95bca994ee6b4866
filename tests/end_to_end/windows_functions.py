"""Which Windows has a function first, from the pages of the functions ("minimum supported client").
The C library, msvcrt.dll, is not here."""

# In Windows 7, or in an older one.
WINDOWS_7 = set("""
__C_specific_handler AcquireSRWLockExclusive AcquireSRWLockShared AddVectoredExceptionHandler
AreFileApisANSI CancelIo CancelIoEx CloseHandle CompareStringOrdinal ConnectNamedPipe CopyFileExW
CopyFileW CreateDirectoryExW CreateDirectoryW CreateEventA CreateEventW CreateFileA
CreateFileMappingA CreateFileMappingW CreateFileW CreateHardLinkW CreateIoCompletionPort
CreateMutexA CreateMutexW CreateNamedPipeW CreatePipe CreateProcessW CreateSemaphoreA
CreateSemaphoreW CreateThread CreateToolhelp32Snapshot DeleteCriticalSection DeleteFileW
DeviceIoControl DuplicateHandle EnterCriticalSection ExitProcess ExitThread
ExpandEnvironmentStringsW FileTimeToSystemTime FindClose FindFirstFileExW FindFirstFileW
FindFirstVolumeW FindNextFileW FindNextVolumeW FindResourceW FindVolumeClose FlushFileBuffers
FormatMessageA FormatMessageW FreeEnvironmentStringsW FreeLibrary GetACP GetCommandLineW
GetComputerNameW GetConsoleCP GetConsoleMode GetConsoleOutputCP GetCurrentDirectoryW
GetCurrentProcess GetCurrentProcessId GetCurrentThread GetCurrentThreadId GetDiskFreeSpaceExW
GetDriveTypeW GetEnvironmentStringsW GetEnvironmentVariableW GetErrorMode GetExitCodeProcess
GetExitCodeThread GetFileAttributesExW GetFileAttributesW GetFileInformationByHandle
GetFileInformationByHandleEx GetFileSize GetFileSizeEx GetFileTime GetFileType
GetFinalPathNameByHandleW GetFullPathNameW GetHandleInformation GetLastError GetLocalTime
GetLongPathNameW GetModuleFileNameA GetModuleFileNameW GetModuleHandleA GetModuleHandleExA
GetModuleHandleExW GetModuleHandleW GetNativeSystemInfo GetOEMCP GetOverlappedResult GetProcAddress
GetProcessAffinityMask GetProcessHeap GetProcessId GetProcessTimes GetQueuedCompletionStatus
GetStartupInfoA GetStartupInfoW GetStdHandle GetSystemDirectoryW GetSystemInfo GetSystemTime
GetSystemTimeAdjustment GetSystemTimeAsFileTime GetSystemWow64DirectoryW GetTempFileNameW
GetTempPathW GetThreadContext GetThreadPriority GetThreadTimes GetTickCount GetTickCount64
GetVersionExW GetVolumeInformationW GetVolumePathNameW GetWindowsDirectoryW GlobalAlloc GlobalFree
GlobalMemoryStatusEx HeapAlloc HeapFree HeapReAlloc InitializeConditionVariable
InitializeCriticalSection InitializeCriticalSectionAndSpinCount InitializeCriticalSectionEx
InitializeSRWLock InitOnceExecuteOnce IsDBCSLeadByteEx IsDebuggerPresent IsProcessorFeaturePresent
IsWow64Process LCMapStringEx LCMapStringW LeaveCriticalSection LoadLibraryA LoadLibraryExA
LoadLibraryExW LoadLibraryW LoadResource LocalAlloc LocalFree LockFile LockFileEx LockResource
lstrlenW MapViewOfFile Module32FirstW Module32NextW MoveFileExW MoveFileW MultiByteToWideChar
OpenProcess OutputDebugStringA OutputDebugStringW PeekNamedPipe PostQueuedCompletionStatus
Process32FirstW Process32NextW QueryFullProcessImageNameW QueryPerformanceCounter
QueryPerformanceFrequency QueueUserAPC RaiseException ReadConsoleW ReadFile ReleaseMutex
ReleaseSemaphore ReleaseSRWLockExclusive ReleaseSRWLockShared RemoveDirectoryW
RemoveVectoredExceptionHandler ReplaceFileW ResetEvent ResumeThread RtlAddFunctionTable
RtlCaptureContext RtlLookupFunctionEntry RtlUnwind RtlUnwindEx RtlVirtualUnwind SearchPathW
SetConsoleCtrlHandler SetConsoleMode SetConsoleOutputCP SetCurrentDirectoryW SetDllDirectoryW
SetEndOfFile SetEnvironmentVariableW SetErrorMode SetEvent SetFileAttributesW
SetFileInformationByHandle SetFilePointer SetFilePointerEx SetFileTime SetHandleInformation
SetLastError SetProcessAffinityMask SetStdHandle SetSystemTime SetThreadContext SetThreadErrorMode
SetThreadPriority SetUnhandledExceptionFilter SetWaitableTimer SizeofResource Sleep
SleepConditionVariableCS SleepConditionVariableSRW SleepEx SuspendThread SwitchToThread
SystemTimeToFileTime SystemTimeToTzSpecificLocalTime TerminateProcess TerminateThread Thread32First
Thread32Next TlsAlloc TlsFree TlsGetValue TlsSetValue TryAcquireSRWLockExclusive
TryEnterCriticalSection UnhandledExceptionFilter UnlockFile UnlockFileEx UnmapViewOfFile
VerifyVersionInfoW VerSetConditionMask VirtualAlloc VirtualFree VirtualProtect VirtualQuery
WaitForMultipleObjects WaitForSingleObject WaitForSingleObjectEx WakeAllConditionVariable
WakeConditionVariable WideCharToMultiByte WriteConsoleA WriteConsoleW WriteFile

BCryptCloseAlgorithmProvider BCryptCreateHash BCryptDestroyHash BCryptFinishHash BCryptGenRandom
BCryptHashData BCryptOpenAlgorithmProvider WSACleanup WSAStartup

AdjustTokenPrivileges CloseServiceHandle EnumServicesStatusExW EnumServicesStatusW
GetServiceDisplayNameW GetServiceKeyNameW GetTokenInformation LookupPrivilegeValueW
OpenProcessToken OpenSCManagerA OpenSCManagerW OpenServiceA OpenServiceW QueryServiceConfigW
QueryServiceStatus QueryServiceStatusEx RegCloseKey RegCreateKeyExW RegDeleteKeyW RegDeleteValueW
RegEnumKeyExW RegEnumValueW RegGetValueW RegOpenKeyExA RegOpenKeyExW RegQueryInfoKeyW
RegQueryValueExA RegQueryValueExW RegSetValueExW SystemFunction036

CM_Get_Child CM_Get_Device_IDW CM_Get_DevNode_Status CM_Get_Parent CM_Get_Sibling
SetupDiDestroyDeviceInfoList SetupDiEnumDeviceInfo SetupDiEnumDeviceInterfaces
SetupDiGetClassDevsExW SetupDiGetClassDevsW SetupDiGetDeviceInstanceIdW
SetupDiGetDeviceInterfaceDetailW SetupDiGetDevicePropertyW SetupDiGetDeviceRegistryPropertyW
SetupDiOpenDevRegKey

CommandLineToArgvW CoTaskMemFree GetFileVersionInfoSizeW GetFileVersionInfoW RtlGetVersion
SHGetFolderPathW SHGetKnownFolderPath VerQueryValueW
""".split())

# In a newer one only. Windows 7 with update KB2533623 has the first three, too.
NEWER = {
    "AddDllDirectory": "8",
    "RemoveDllDirectory": "8",
    "SetDefaultDllDirectories": "8",
    "CopyFile2": "8",
    "CreateFile2": "8",
    "GetOverlappedResultEx": "8",
    "GetPackagePathByFullName": "8.1",
    "GetPackagesByPackageFamily": "8.1",
    "GetSystemTimePreciseAsFileTime": "8",
    "GetCurrentPackageFullName": "8",
    "PrefetchVirtualMemory": "8",
    "WaitOnAddress": "8",
    "WakeByAddressAll": "8",
    "WakeByAddressSingle": "8",
    "CreatePseudoConsole": "10",
    "GetDpiForWindow": "10",
    "GetThreadDescription": "10",
    "GetTempPath2W": "11",
    "SetThreadDescription": "10",
    "IsWow64Process2": "10",
    "VirtualAlloc2": "10",
}
