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
    if (aNow < mBusyUntil)
    {
        return false;
    }
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
    mPending.emplace_back(mPointer, aByte);
    if (mPending.size() > cPage)
    {
        mPending.erase(mPending.begin()); // its place has been written anew
    }
    mPointer = static_cast<uint8_t>((mPointer & ~cInPage) | ((mPointer + 1U) & cInPage));
    return true;
}

uint8_t Eeprom24C02::OnRead(Time /*aNow*/)
{
    LockScope lScope(mLock);
    return mContents[mPointer++];
}

void Eeprom24C02::OnStop(Time aNow)
{
    LockScope lScope(mLock);
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
