#include "math/PackedMatrix.h"


namespace kelm {

PackedMatrix::PackedMatrix(const float* source, unsigned rows, unsigned cols)
    : rowCount(rows),
      colCount(cols),
      colGroups(cols ? (cols - 1) / 4 + 1 : 0) {
    packets.resize(static_cast<size_t>(colGroups) * rows);
    packedInput.resize(colGroups);
    pack(source);
}

void PackedMatrix::pack(const float* source) {
    for (unsigned g = 0; g < colGroups; ++g)
        for (unsigned r = 0; r < rowCount; ++r) {
            Eigen::Vector4f& p = packets[static_cast<size_t>(g) * rowCount + r];
            for (unsigned l = 0; l < 4; ++l) {
                unsigned c = 4 * g + l;
                p[l] = c < colCount ? source[static_cast<size_t>(c) * rowCount + r] : 0.0f;
            }
        }
}

bool PackedMatrix::updateMatrix(const float* source, unsigned rows, unsigned cols) {
    if (rows != rowCount || cols != colCount) return false;
    pack(source);
    return true;
}

bool PackedMatrix::product(const float* x, float* y, unsigned xSize, unsigned ySize) {
    if (xSize != colCount || ySize != rowCount) return false;
    for (unsigned g = 0; g < colGroups; ++g)
        for (unsigned l = 0; l < 4; ++l) {
            unsigned c = 4 * g + l;
            packedInput[g][l] = c < colCount ? x[c] : 0.0f;
        }
    for (unsigned r = 0; r < rowCount; ++r) {
        Eigen::Vector4f acc = Eigen::Vector4f::Zero();
        unsigned g = 0;
        for (; g + 2 <= colGroups; g += 2) {
            acc += packets[static_cast<size_t>(g) * rowCount + r].cwiseProduct(packedInput[g]);
            acc += packets[static_cast<size_t>(g + 1) * rowCount + r].cwiseProduct(packedInput[g + 1]);
        }
        if (g < colGroups) acc += packets[static_cast<size_t>(g) * rowCount + r].cwiseProduct(packedInput[g]);
        y[r] = (acc[1] + acc[3]) + (acc[0] + acc[2]);
    }
    return true;
}

} // namespace kelm
