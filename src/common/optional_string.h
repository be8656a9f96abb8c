// An optional owned string: none is a null pointer, as the C-string interfaces expect.
#pragma once

#include <memory>
#include <string>

inline std::unique_ptr<std::string> CopyOrNone(const char* s) {
  return s ? std::make_unique<std::string>(s) : nullptr;
}

inline const char* CStr(const std::unique_ptr<std::string>& s) {
  return s ? s->c_str() : nullptr;
}
