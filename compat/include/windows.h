// The subset of the Windows API that the agent uses, for POSIX systems.
// Types, constants and calls keep their Windows names, sizes and semantics so that
// the agent's sources compile unchanged here and against the real headers on Windows.
#ifndef HM_COMPAT_WINDOWS_H
#define HM_COMPAT_WINDOWS_H

#include <stddef.h>
#include <stdint.h>

#if defined(HM_COMPAT_BUILDING)
#define HM_COMPAT_API __attribute__((visibility("default")))
#else
#define HM_COMPAT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define WINAPI
#define CALLBACK
#define APIENTRY

// Fixed-width Windows types (LONG and DWORD are 32 bits on every Windows target).
typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned char UCHAR;
typedef unsigned short WORD;
typedef unsigned short USHORT;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef uint32_t DWORD;
typedef uint32_t UINT;
typedef int32_t INT;
typedef void VOID;
typedef char CHAR;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef BOOL* LPBOOL;
typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef HANDLE HINSTANCE;
typedef HANDLE HMODULE;
typedef DWORD REGSAM;
typedef LONG LSTATUS;

#define INVALID_HANDLE_VALUE ((HANDLE)(intptr_t)-1)

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// Error codes (winerror.h values).
#define ERROR_SUCCESS 0L
#define NO_ERROR 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_NOT_OWNER 288L
#define ERROR_BADDB 1009L
#define ERROR_BADKEY 1010L
#define ERROR_CANTOPEN 1011L
#define ERROR_CANTREAD 1012L
#define ERROR_TIMEOUT 1460L

// Registry.
struct HKEY__;
typedef struct HKEY__* HKEY;
typedef HKEY* PHKEY;
#define HKEY_CLASSES_ROOT ((HKEY)(uintptr_t)0x80000000u)
#define HKEY_CURRENT_USER ((HKEY)(uintptr_t)0x80000001u)
#define HKEY_LOCAL_MACHINE ((HKEY)(uintptr_t)0x80000002u)
#define HKEY_USERS ((HKEY)(uintptr_t)0x80000003u)

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_READ 0x20019
#define KEY_WOW64_64KEY 0x0100

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4

// The registry is read from a file in the .reg text format; its path comes from
// this environment variable, or HM_COMPAT_REGISTRY_DEFAULT when it is not set.
#define HM_COMPAT_REGISTRY_ENV "HMSUBAGENT_REGISTRY"
#define HM_COMPAT_REGISTRY_DEFAULT "/etc/hmsubagent/registry.reg"

HM_COMPAT_API LONG WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                                        PHKEY phkResult);
HM_COMPAT_API LONG WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                           LPBYTE lpData, LPDWORD lpcbData);
HM_COMPAT_API LONG WINAPI RegCloseKey(HKEY hKey);

// Threads and synchronisation.
typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

typedef DWORD(WINAPI* PTHREAD_START_ROUTINE)(LPVOID lpThreadParameter);
typedef PTHREAD_START_ROUTINE LPTHREAD_START_ROUTINE;

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0x00000000u
#define WAIT_ABANDONED 0x00000080u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu
#define CREATE_SUSPENDED 0x00000004u
#define STILL_ACTIVE 259u

HM_COMPAT_API HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, size_t dwStackSize,
                                         LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                                         DWORD dwCreationFlags, LPDWORD lpThreadId);
HM_COMPAT_API HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                                         BOOL bInitialState, LPCSTR lpName);
HM_COMPAT_API BOOL WINAPI SetEvent(HANDLE hEvent);
HM_COMPAT_API BOOL WINAPI ResetEvent(HANDLE hEvent);
HM_COMPAT_API HANDLE WINAPI CreateMutexA(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner,
                                         LPCSTR lpName);
HM_COMPAT_API BOOL WINAPI ReleaseMutex(HANDLE hMutex);
HM_COMPAT_API DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
HM_COMPAT_API BOOL WINAPI CloseHandle(HANDLE hObject);
HM_COMPAT_API VOID WINAPI Sleep(DWORD dwMilliseconds);
HM_COMPAT_API VOID WINAPI ExitProcess(UINT uExitCode);
HM_COMPAT_API DWORD WINAPI GetCurrentThreadId(void);
HM_COMPAT_API DWORD WINAPI GetLastError(void);
HM_COMPAT_API VOID WINAPI SetLastError(DWORD dwErrCode);

// POSIX extension: the file descriptor that is readable while an event is signalled,
// so that a poll/select loop can wait on an event beside its sockets. Returns -1 for
// a handle that is not an event. Waiting on the descriptor does not reset the event:
// the waiter then calls WaitForSingleObject(h, 0), which resets an auto-reset event.
HM_COMPAT_API int HmCompatEventFd(HANDLE hEvent);

#ifdef __cplusplus
}
#endif

#endif
