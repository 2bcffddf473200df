#pragma once

#include <string_view>

namespace host::html {

// The style sheet of a page: light or dark as the reader likes it, white on paper, from 320 pixels up.
extern const std::string_view kStyle;

}  // namespace host::html
