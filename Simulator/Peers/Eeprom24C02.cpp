#include "Simulator/Peers/Eeprom24C02.h"

namespace KySimulator
{

Eeprom24C02::Eeprom24C02(Time aWriteTime) : mWriteTime(aWriteTime)
{
    mContents.fill(0xFF);
}

bool Eeprom24C02::OnAddressed(bool aRead, Time aNow)
{
    LockScope lScope(mLock);
    mPending.clear(); // only a stop makes a write count
    // While it programs a page the chip does not acknowledge its address. Drivers ask again until it does.
    if (aNow < mBusyUntil)
    {
        return false;
    }
    // The first byte of a write sets the pointer; a read goes on from where the pointer stands.
    mExpectPointer = !aRead;
    return true;
}

bool Eeprom24C02::OnWrite(uint8_t aByte, Time /*aNow*/)
{
    LockScope lScope(mLock);
    if (mExpectPointer)
    {
        mExpectPointer = false;
        mPointer = aByte;
        return true;
    }
    constexpr unsigned cInPage = cPage - 1;
    // Bytes go to the page buffer. The chip programs them at the stop.
    mPending.emplace_back(mPointer, aByte);
    if (mPending.size() > cPage)
    {
        mPending.erase(mPending.begin()); // its place has been written anew
    }
    // Within a write only the place in the page counts up: a write past the end of the page starts again at its
    // beginning.
    mPointer = static_cast<uint8_t>((mPointer & ~cInPage) | ((mPointer + 1U) & cInPage));
    return true;
}

uint8_t Eeprom24C02::OnRead(Time /*aNow*/)
{
    LockScope lScope(mLock);
    // A read counts over the whole memory and goes on at 0 after the last byte.
    return mContents[mPointer++];
}

void Eeprom24C02::OnStop(Time aNow)
{
    LockScope lScope(mLock);
    // A stop without data, after a read or after the pointer alone, programs nothing and keeps nobody waiting.
    if (mPending.empty())
    {
        return;
    }
    for (const auto& [lAddress, lByte] : mPending)
    {
        mContents[lAddress] = lByte;
    }
    mPending.clear();
    mBusyUntil = aNow + mWriteTime;
}

std::array<uint8_t, Eeprom24C02::cSize> Eeprom24C02::GetContents() const
{
    LockScope lScope(mLock);
    return mContents;
}

void Eeprom24C02::SetContents(const std::array<uint8_t, cSize>& aContents)
{
    LockScope lScope(mLock);
    mContents = aContents;
}

Time Eeprom24C02::GetBusyUntil() const
{
    LockScope lScope(mLock);
    return mBusyUntil;
}

} // namespace KySimulator
