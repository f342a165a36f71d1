#pragma once

namespace KyPlatform
{

/// Gives a descriptor that was just made a number from 3 on.
///
/// A program may run with its standard streams closed. A descriptor with the number of one of them would get
/// what the program, or a library in it, prints.
/// \param aDescriptor  A new descriptor, or -1 with errno of the call that was to make it.
/// \return The descriptor to use, closed on exec when it was moved; -1 with errno: no descriptor was left.
int MoveUp(int aDescriptor) noexcept;

} // namespace KyPlatform
