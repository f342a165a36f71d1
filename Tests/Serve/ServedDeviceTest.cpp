#include "ServedDeviceTest.h"

using namespace KyTest;

namespace
{

using NoMemory = AllocationCounter;

INSTANTIATE_TYPED_TEST_SUITE_P(WithoutMemory, ServedDeviceTest, NoMemory);

} // namespace
