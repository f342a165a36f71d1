#include "Support/AllocationCounter.h"
#include "Support/ForEachNth.h"

#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Camera/SimulatedDeviceAdapter.h>

#include <memory>
#include <new>

namespace
{

// A thread of a half-made adapter would end the program.
TEST(SimulatedAdapterAllocationTest, AnAdapterIsMadeWholeOrNotAtAll)
{
    const auto lCamera = std::make_shared<KySimulator::CameraModel>(KySimulator::CameraConfiguration());
    int lMade = 0;
    const int lRefused = KyTest::ForEachNth(
        [&](int aNth, int& aCount)
        {
            const KyTest::AllocationCounter lCounter(aNth);
            try
            {
                const KySimulator::SimulatedDeviceAdapter lAdapter(lCamera);
                ++lMade;
            }
            catch (const std::bad_alloc&)
            {
            }
            aCount = KyTest::AllocationCounter::GetCount();
        });
    EXPECT_GT(lRefused, 2);
    EXPECT_EQ(1, lMade); // the last one, with no call refused
}

} // namespace
