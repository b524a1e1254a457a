// A stand-in for VELQFileEncrypt that never takes a hand-off, for velq's end-to-end tests on both systems:
// given an encryption's line (its last field is the request type 1) it ends at once with 3, as a program
// that dies before it looks; given any other it ends with 7 after two seconds, outliving a limit of one.
#include <chrono>
#include <string_view>
#include <thread>

int main(int argc, char** argv) {
    const std::string_view line = argc > 1 ? argv[1] : "";
    if (line.ends_with("::1")) {
        return 3;
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));
    return 7;
}
