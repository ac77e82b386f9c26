// A folder that is there for one test. Its name is given to nobody else, so what a run that was
// killed has left behind is in no other test's way. Used by one thread.
#pragma once

#include <string>
#include <vector>

namespace tools
{

class scratch
{
public:
    scratch();
    ~scratch(); // with all that is in it
    scratch(const scratch&) = delete;
    scratch& operator=(const scratch&) = delete;
    std::string operator/(const std::string& name) const;
    std::string write(const std::string& name, const std::string& text) const; // its path
    std::string read(const std::string& name) const;
    std::vector<std::string> names() const; // of the files in it, sorted
private:
    std::string path_;
};

} // namespace tools
