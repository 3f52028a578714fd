#pragma once

/// @file
/// What the library shows to an application.

/// Marks what the shared library shows to an application; everything else in it is hidden.
#define VELA_ZCE_API __attribute__((visibility("default")))
