// The line of a check that must hold. It stops the operation, not the process.
#pragma once

#include <ace/Log_Msg.h>

// Logs the assertion line at LM_EMERGENCY and returns `result` from the function, if `pointer` is
// null, `condition` is false or `value` is empty. A void function gives void().
#define MTF_ASSERT_NOT_NULL(pointer, ...) \
  MTF_ASSERT_LINE_((pointer) == nullptr, #pointer " is NULL", __VA_ARGS__)
#define MTF_ASSERT_TRUE(condition, ...) \
  MTF_ASSERT_LINE_(!(condition), #condition " is false", __VA_ARGS__)
#define MTF_ASSERT_NOT_EMPTY(value, name, ...) \
  MTF_ASSERT_LINE_((value).empty(), name " is empty", __VA_ARGS__)

#define MTF_ASSERT_LINE_(failed, text, ...)                                              \
  do {                                                                                   \
    if (failed) {                                                                        \
      ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, " text ":\n%?\n"))); \
      return __VA_ARGS__;                                                                \
    }                                                                                    \
  } while (false)
