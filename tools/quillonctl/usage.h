#pragma once

namespace quillonctl {

// The --help text, commands from the command table included.
void PrintUsage();

}  // namespace quillonctl
