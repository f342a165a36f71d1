#pragma once

// The parser's classes by name, for headers: its own header takes seconds to read.
namespace CLI
{

class App;
class Option;

} // namespace CLI
