#include "dump/LineInput.h"

#include <cerrno>
#include <system_error>

namespace {

constexpr std::size_t longestLine = 1024;

} // namespace

void LineInput::Close::operator()(std::FILE* open) const { std::fclose(open); }

LineInput::LineInput(const std::string& name)
    : what(name.empty() ? "cannot read standard input" : "cannot read '" + name + "'"),
      file(name.empty() ? stdin : std::fopen(name.c_str(), "re"))
{
    if (!file) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

bool LineInput::read(std::string& line)
{
    line.clear();
    int character = EOF;
    while ((character = getc_unlocked(file.get())) != EOF && character != '\n') {
        if (line.size() < longestLine) {
            line.push_back(static_cast<char>(character));
        }
    }
    if (character == EOF && std::ferror(file.get()) != 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return character == '\n' || !line.empty();
}
