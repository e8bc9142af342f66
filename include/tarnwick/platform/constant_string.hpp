// Constant strings for a library built on the platform. Each definition is
// an object of its own that retain and release leave alone, so code that
// tells keys apart by identity can tell two constants of equal text apart.
// The object is made when the library is loaded.
#pragma once

#include "tarnwick/platform/values.h"

// A constant declared (and exported) in a public header.
#define TW_DEFINE_CONSTANT_STRING(name, literal)                                 \
  extern "C" {                                                                   \
  const PVStringRef name = PVStringCreateConstant(literal, sizeof(literal) - 1); \
  }

// The same for a pointer variable that the library never assigns.
#define TW_DEFINE_CONSTANT_STRING_VARIABLE(name, literal)                  \
  extern "C" {                                                             \
  PVStringRef name = PVStringCreateConstant(literal, sizeof(literal) - 1); \
  }

// A file-local constant, for use in an unnamed namespace.
#define TW_DEFINE_LOCAL_CONSTANT_STRING(name, literal) \
  const PVStringRef name = PVStringCreateConstant(literal, sizeof(literal) - 1);
