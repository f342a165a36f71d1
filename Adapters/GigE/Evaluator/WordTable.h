#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace KyGigE
{

/// What each of a few known words means; made by the compiler. A word is looked up with one comparison or two: a description
/// of a megabyte has forty thousand.
template<typename Meaning, size_t Places>
class WordTable
{
public:
    /// \param aWords  Fewer than half of the places, all different.
    template<size_t Count>
    explicit constexpr WordTable(const std::pair<std::string_view, Meaning> (&aWords)[Count])
    {
        static_assert(Count * 2 <= Places, "searches end at a place that is empty");
        for (const auto& lWord : aWords)
        {
            size_t lPlace = PlaceOf(lWord.first);
            while (!mWords[lPlace].first.empty())
            {
                lPlace = (lPlace + 1) % Places;
            }
            mWords[lPlace] = lWord;
        }
    }

    std::optional<Meaning> Find(std::string_view aWord) const
    {
        for (size_t lPlace = aWord.empty() ? 0 : PlaceOf(aWord);
             !aWord.empty() && !mWords[lPlace].first.empty(); lPlace = (lPlace + 1) % Places)
        {
            if (mWords[lPlace].first == aWord)
            {
                return mWords[lPlace].second;
            }
        }
        return std::nullopt;
    }

private:
    static constexpr size_t PlaceOf(std::string_view aWord)
    {
        const auto lChar = [&](size_t aIndex) { return static_cast<unsigned char>(aWord[aIndex]); };
        return (aWord.size() * 7 + lChar(0) * size_t{3} + lChar(aWord.size() / 2) * size_t{11} +
                lChar(aWord.size() - 1) * size_t{5}) %
               Places;
    }

    std::array<std::pair<std::string_view, Meaning>, Places> mWords{};
};

template<typename Meaning, size_t Count>
constexpr WordTable<Meaning, 256> MakeWordTable(const std::pair<std::string_view, Meaning> (&aWords)[Count])
{
    return WordTable<Meaning, 256>(aWords);
}

} // namespace KyGigE
