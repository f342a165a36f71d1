// As a customer's program that uses the log alone.

#include <JxUtilsLib/Logger.h>

#include <cstdio>

namespace
{

class CountingSink : public JxUtilsLib::LogSink
{
public:
    void Write(const JxUtilsLib::LogRecord& /*aRecord*/) override { ++mLines; }

    int mLines = 0;
};

} // namespace

int main()
{
    CountingSink lSink;
    JxUtilsLib::Logger::SetSink(&lSink);
    const JxUtilsLib::Logger lLogger("Consumer");
    lLogger.Log(JxUtilsLib::PriorityFatal, "small.cpp", 1, "main", "a line");
    JxUtilsLib::Logger::SetSink(nullptr);
    std::printf("small: %d line\n", lSink.mLines);
    return 0;
}
