#include "kyserial/Commands/I2CCommand.h"

namespace KySerialTool
{

void AddI2CCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand("i2c", "Work on the I2C bus of a bulk port");
    lCommand.footer("Grammar and output are those of i2c-tools; the bus number gives way to --port.\n"
                    "The bulk port runs I2C meanwhile.");
    AddI2CDetect(lCommand, aContext);
    AddI2CGet(lCommand, aContext);
    AddI2CSet(lCommand, aContext);
    AddI2CDump(lCommand, aContext);
    AddI2CTransfer(lCommand, aContext);
    AddI2CEeprom(lCommand, aContext);
}

} // namespace KySerialTool
