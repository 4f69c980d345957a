#pragma once
#include <vector>

#include "engine/Types.h"

namespace kelm {

// A small block of floats handed to the MNA assembly as an array of row pointers.
class Stamp {
public:
    Stamp(int rows = 0, int cols = 0) { resize(rows, cols); }
    Stamp(const Stamp& o) : rowCount(o.rowCount), colCount(o.colCount), data(o.data) { link(); }
    Stamp& operator=(const Stamp& o) {
        rowCount = o.rowCount;
        colCount = o.colCount;
        data = o.data;
        link();
        return *this;
    }
    void resize(int rows, int cols) {
        rowCount = rows;
        colCount = cols;
        data.assign(static_cast<size_t>(rows) * cols, 0.0f);
        link();
    }
    scalar** rows() { return pointers.empty() ? nullptr : pointers.data(); }
    scalar& operator()(int r, int c) { return data[static_cast<size_t>(r) * colCount + c]; }
    void zero() { std::fill(data.begin(), data.end(), 0.0f); }

private:
    void link() {
        pointers.resize(rowCount);
        for (int r = 0; r < rowCount; ++r) pointers[r] = data.data() + static_cast<size_t>(r) * colCount;
    }
    int rowCount = 0;
    int colCount = 0;
    std::vector<scalar> data;
    std::vector<scalar*> pointers;
};

} // namespace kelm
