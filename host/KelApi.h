#pragma once

/// What the shared library gives to programs. Nothing else of it can be seen from outside.
#define KEL_API __attribute__((visibility("default")))

/// A part of such a class that stays inside.
#define KEL_PRIVATE __attribute__((visibility("hidden")))
