#include "BulkWithI2C.h"

namespace KySerialLib
{

BulkWithI2C::BulkWithI2C() = default;
BulkWithI2C::~BulkWithI2C() = default;

} // namespace KySerialLib
