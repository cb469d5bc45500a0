#include "core/startup/startup.h"

int main() {
    TesselDaemonMain();
}
