// Another project's program on the C++ layer.
#include <iostream>

#include <zu/camera.hpp>

int main()
{
    const zu::Library library;
    try {
        const zu::Library second;
    } catch (const std::system_error& error) {
        if (error.code() == zu::Errc::library_in_use) {
            return 0;
        }
    }
    std::cout << "a second library is let in\n";
    return 1;
}
