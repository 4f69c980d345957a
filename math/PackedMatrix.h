#pragma once
#include <vector>

#include <Eigen/Core>

namespace kelm {

// A constant matrix packed in groups of four columns for repeated products y = M x.
class PackedMatrix {
public:
    PackedMatrix(const float* source, unsigned rows, unsigned cols);
    // Repacks new values of the same shape; false, with nothing changed, for another shape.
    bool updateMatrix(const float* source, unsigned rows, unsigned cols);
    // y := M x; false, with nothing written, when the sizes differ from the shape.
    bool product(const float* x, float* y, unsigned xSize, unsigned ySize);
    unsigned rows() const { return rowCount; }
    unsigned cols() const { return colCount; }

private:
    void pack(const float* source);

    std::vector<Eigen::Vector4f, Eigen::aligned_allocator<Eigen::Vector4f>> packets;
    std::vector<Eigen::Vector4f, Eigen::aligned_allocator<Eigen::Vector4f>> packedInput;
    unsigned rowCount;
    unsigned colCount;
    unsigned colGroups;
};

} // namespace kelm
