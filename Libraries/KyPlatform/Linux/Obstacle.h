#pragma once

namespace KyPlatform
{

/// What was in the way when a thread could not open or make a named object: the first thing since Forget().
struct Obstacle
{
    const char* mWhat = nullptr; ///< What cannot be done; null: nothing was in the way.
    int mError = 0;              ///< Why the system refused; 0: it did not.

    /// \param aWhat  A literal.
    static void Note(const char* aWhat, int aError) noexcept;
    /// Does nothing unless the error is a shortage.
    static void NoteShortage(const char* aWhat, int aError) noexcept;
    static void Forget() noexcept;
    static const Obstacle& Get() noexcept;

    /// Whether the system or the process lacked something, which says nothing about the object.
    bool IsShortage() const noexcept;
};

} // namespace KyPlatform
