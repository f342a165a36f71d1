#pragma once

#include <cstddef>
#include <string>

namespace KyBench
{

/// A feature as cameras have them: an enumeration with conditions on a register, and what they are made of. All lie at a
/// register that every device here has.
inline std::string Feature(const std::string& aNumber)
{
    const std::string lName = "Feature" + aNumber;
    const auto lEntry = [](const std::string& aValue)
    {
        return "<EnumEntry Name=\"Entry" + aValue +
               "\" NameSpace=\"Custom\"><ToolTip>One of several</ToolTip><Value>" + aValue +
               "</Value></EnumEntry>";
    };
    std::string lEntries;
    for (int lValue = 0; lValue < 6; ++lValue)
    {
        lEntries += lEntry(std::to_string(lValue));
    }
    const auto lRegister =
        [&](const std::string& aKind, const std::string& aRegister, const std::string& aMore)
    {
        return "<" + aKind + " Name=\"" + aRegister +
               "\"><Address>0xB838</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</"
               "pPort><Cachable>NoCache"
               "</Cachable>" +
               aMore + "<Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></" + aKind + ">\n";
    };
    return "<Enumeration Name=\"" + lName +
           "\" NameSpace=\"Custom\">\n<ToolTip>A feature of the device</ToolTip>"
           "<Visibility>Expert</Visibility><pIsAvailable>" +
           lName + "Available</pIsAvailable>" + lEntries + "<pValue>" + lName +
           "Register</pValue></Enumeration>\n" + lRegister("IntReg", lName + "Register", "") +
           "<IntSwissKnife Name=\"" + lName + "Available\"><pVariable Name=\"BIT\">" + lName +
           "Bit</pVariable><Formula>(BIT = 0) ? 1 : 0</Formula></IntSwissKnife>\n" +
           lRegister("MaskedIntReg", lName + "Bit", "<Bit>3</Bit>");
}

/// A description with these nodes and a port.
inline std::string Described(const std::string& aNodes)
{
    return "<RegisterDescription SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
           "xmlns=\"http://www.genicam.org/GenApi/Version_1_1\">\n<Port Name=\"Device\"/>\n" +
           aNodes + "</RegisterDescription>\n";
}

/// A description of aSize bytes, or a little more.
inline std::string MakeDescription(size_t aSize)
{
    std::string lNodes;
    std::string lRoot;
    for (int lNumber = 1000; lNodes.size() < aSize; ++lNumber)
    {
        lNodes += Feature(std::to_string(lNumber));
        lRoot += "<pFeature>Feature" + std::to_string(lNumber) + "</pFeature>";
    }
    return Described("<Category Name=\"Root\">" + lRoot + "</Category>\n" + lNodes);
}

} // namespace KyBench
