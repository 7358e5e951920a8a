#pragma once

namespace vesk {

/// Understands the command line, carries the command out and returns the process's exit code.
int run(int argc, char** argv);

} // namespace vesk
