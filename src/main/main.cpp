// The daemon takes no options: it is configured through platform settings only.
#include "quillon_main.h"

int main() {
    return RunDaemon();
}
