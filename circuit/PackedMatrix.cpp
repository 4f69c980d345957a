#include "circuit/PackedMatrix.h"

#include "engine/KELMException.h"
#include "engine/Str.h"

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

void PackedMatrix::updateMatrix(const float* source, unsigned rows, unsigned cols) {
    if (rows != rowCount || cols != colCount)
        throw KELMException(str("Changing matrix dimensions is not allowed in updateMatrix. Old dimensions mxn=",
                                rowCount, "x", colCount, ". New dimensions mxn", rows, "x", cols));
    pack(source);
}

void PackedMatrix::product(const float* x, float* y, unsigned xSize, unsigned ySize) {
    if (xSize != colCount)
        throw KELMException(str("Invalid size of the x vector in matrix-vector product. Expected ", colCount,
                                ", got ", xSize));
    if (ySize != rowCount)
        throw KELMException(str("Invalid size of the y vector in matrix-vector product. Expected ", rowCount,
                                ", got ", ySize));
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
}

} // namespace kelm
