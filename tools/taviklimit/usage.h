// The --help text.
#pragma once

namespace taviklimit {

// The manual page printed by --help.
const char* usage_text();

}  // namespace taviklimit
