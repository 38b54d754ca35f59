#pragma once
// Symbols of libtavrin are hidden by default; TAVRIN_API marks the exported ones.
#if defined(_WIN32)
#if defined(TAVRIN_BUILDING)
#define TAVRIN_API __declspec(dllexport)
#else
#define TAVRIN_API __declspec(dllimport)
#endif
#else
#define TAVRIN_API __attribute__((visibility("default")))
#endif
