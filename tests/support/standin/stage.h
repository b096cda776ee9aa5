// What a test tells the stand-in through environment variables, and what the stand-in tells the test.
//
//   RAVLO_STANDIN_RECORD  file to which each call adds one line, "Method arguments", and each thing that the stand-in
//                         did or saw by itself one that begins with "# "
//   RAVLO_STANDIN_FAIL    words "Method=HRESULT", such as "Start=80070005 SetString=8007000E": these methods do nothing
//                         and return that; "Method=hang" stays in the call for 30 seconds
//   RAVLO_STANDIN_NO_VIRTUAL_CAMERA  set: the type is said to be unsupported
//   RAVLO_STANDIN_PULL    set: a started camera pulls samples from its source and says what they were
#pragma once

#include <windows.h>

#include <string>

namespace ravlo::standin {

bool IsAsked(const wchar_t* variable);

/// One line for the test; `line` without its end. Any thread.
void Record(const std::wstring& line);

/// Records a call of `method` and returns what it is to fail with; S_OK when it is to do its work.
HRESULT Enter(const wchar_t* method, const std::wstring& arguments = {});

std::wstring GuidText(REFGUID guid);

}  // namespace ravlo::standin
