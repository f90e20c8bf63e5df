#include "handler/log.h"

namespace velto {

Logger &ChannelLogger()
{
    static Logger logger(std::string("OceloMirror"));
    return logger;
}

namespace logdetail {

void WriteToChannel(LOG_MESSAGE_LEVEL level, const std::wstringstream &stream)
{
    ChannelLogger().Log(level, stream);
}

void WriteToSingleton(LOG_MESSAGE_LEVEL level, const char *tag, std::wstringstream &stream)
{
    stream << L"(" << tag << L")";
    if (stream.good()) {
        NrLogger::GetInstance().Log(level, stream);
    }
}

void WriteToBoth(LOG_MESSAGE_LEVEL level, const char *tag, std::wstringstream &stream)
{
    WriteToChannel(level, stream);
    WriteToSingleton(level, tag, stream);
}

} // namespace logdetail
} // namespace velto
