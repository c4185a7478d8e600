// A program that does nothing, linked to what the agent is linked to: the start and the memory that no agent can save. With an
// argument it waits for a signal instead of ending.

#include <unistd.h>

int main(int argc, char** /*argv*/) {
    if (argc > 1) {
        pause();
    }
}
