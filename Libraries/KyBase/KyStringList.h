#pragma once

#include "KyBase/KyString.h"

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

/// A list of texts in the order in which they were added, walked with GetFirst() and GetNext().
///
/// A value like KyString: complete in its header, nothing throws. One object is used by one thread at a time;
/// the walk's position is part of the object and is not copied.
class KyStringList
{
public:
    KyStringList() noexcept = default;
    KyStringList(const KyStringList& aOther) noexcept { AddAll(aOther); }
    KyStringList(KyStringList&& aOther) noexcept { Swap(aOther); }
    ~KyStringList() { Clear(); }

    KyStringList& operator=(const KyStringList& aOther) noexcept
    {
        if (this != &aOther)
        {
            Clear();
            AddAll(aOther);
        }
        return *this;
    }

    KyStringList& operator=(KyStringList&& aOther) noexcept
    {
        if (this != &aOther)
        {
            Clear();
            Swap(aOther);
        }
        return *this;
    }

    /// Appends a copy of aText. Without memory for it the list stays as it was.
    void Add(const KyString& aText) noexcept
    {
        Node* const lNode = new (std::nothrow) Node{aText, nullptr, &KyStringList::Free};
        if (lNode == nullptr)
        {
            return;
        }
        (mLast != nullptr ? mLast->mNext : mFirst) = lNode;
        mLast = lNode;
        ++mCount;
    }

    /// Removes every text; pointers from GetFirst() and GetNext() end here.
    void Clear() noexcept
    {
        while (mFirst != nullptr)
        {
            Node* const lNode = std::exchange(mFirst, mFirst->mNext);
            lNode->mFree(lNode);
        }
        mLast = nullptr;
        mPosition = nullptr;
        mCount = 0;
    }

    /// Number of texts.
    uint32_t GetCount() const noexcept { return mCount; }

    /// Starts the walk.
    /// \return The first text, owned by the list and valid until it changes; null when the list is empty.
    const KyString* GetFirst() const noexcept
    {
        mPosition = mFirst;
        return Current();
    }

    /// Goes on with the walk.
    /// \return The text after the one given last; null at the end, before GetFirst(), and ever after the end.
    const KyString* GetNext() const noexcept
    {
        mPosition = mPosition != nullptr ? mPosition->mNext : nullptr;
        return Current();
    }

private:
    struct Node
    {
        KyString mText;
        Node* mNext;
        void (*mFree)(Node*); // of the module that made the node
    };

    static void Free(Node* aNode) { delete aNode; }

    const KyString* Current() const noexcept { return mPosition != nullptr ? &mPosition->mText : nullptr; }

    void AddAll(const KyStringList& aOther) noexcept
    {
        for (const Node* lNode = aOther.mFirst; lNode != nullptr; lNode = lNode->mNext)
        {
            Add(lNode->mText);
        }
    }

    void Swap(KyStringList& aOther) noexcept
    {
        std::swap(mFirst, aOther.mFirst);
        std::swap(mLast, aOther.mLast);
        std::swap(mCount, aOther.mCount);
        mPosition = nullptr;
        aOther.mPosition = nullptr;
    }

    Node* mFirst = nullptr;
    Node* mLast = nullptr;
    mutable const Node* mPosition = nullptr;
    uint32_t mCount = 0;
};
