#pragma once

namespace tavrel::test {

/// How many functions Mesa's software renderer has taken from LLVM's compiler in this process, or from its own cache.
int functionsCompiled();

}  // namespace tavrel::test
