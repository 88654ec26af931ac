#include "velk/CANTransportThread.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

std::ostream& operator<<(std::ostream& stream, const CANTransportThread::TPCANMsg& frame)
{
    const auto flags = stream.flags(std::ios_base::hex | std::ios_base::right);
    const auto fill = stream.fill('0');
    stream << " 0x" << std::setw(8) << frame.canID << ' ' << static_cast<unsigned int>(frame.len);
    if (frame.len != 0) {
        stream << ' ';
    }
    const std::size_t count = std::min<std::size_t>(frame.len, sizeof frame.data);
    for (std::size_t i = 0; i < count; ++i) {
        stream << " 0x" << std::setw(2) << static_cast<unsigned int>(frame.data[i]);
    }
    stream.flags(flags);
    stream.fill(fill);
    return stream;
}
