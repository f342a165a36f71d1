#pragma once

#include <cstddef>

namespace KyTest
{

/// Threads of this process.
size_t CountThreads();

} // namespace KyTest
