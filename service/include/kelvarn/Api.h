// Export marking of the Kelvarn library's public names.
#ifndef KELVARN_API_H
#define KELVARN_API_H

#if defined(_WIN32)
#if defined(KELVARN_BUILDING)
#define KELVARN_API __declspec(dllexport)
#else
#define KELVARN_API __declspec(dllimport)
#endif
#else
#define KELVARN_API __attribute__((visibility("default")))
#endif

#endif
