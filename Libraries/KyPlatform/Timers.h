#pragma once

namespace KyPlatform
{

/// Lets waits of the calling thread, and of those that it starts, end within microseconds of their time where the system can do
/// that; on Windows, waits of the whole process within a millisecond. A refusal is ignored: waits are only later.
///
/// Threads: any.
void TightenTimers() noexcept;

} // namespace KyPlatform
