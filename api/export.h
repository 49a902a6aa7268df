// Visibility of the library's exported types and functions. The library is
// built with hidden visibility; everything a host application may name carries
// TUNDREL_API (types that are thrown across the library boundary too, so that
// their type information is shared).
#pragma once

#if defined(_WIN32)
#  if defined(TUNDREL_BUILDING)
#    define TUNDREL_API __declspec(dllexport)
#  else
#    define TUNDREL_API __declspec(dllimport)
#  endif
#else
#  define TUNDREL_API __attribute__((visibility("default")))
#endif
