#pragma once

namespace kelm {

// A pointer event in a frame's pixel coordinates, as the platform window delivers it.
struct MouseEvent {
    enum Type { Down, Move, Up, Wheel };
    Type type = Move;
    int x = 0, y = 0;
    int wheelSteps = 0;  // Wheel only: positive away from the user
    bool shift = false;  // Shift held: finer steps
};

} // namespace kelm
