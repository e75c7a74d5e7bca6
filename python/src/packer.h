#ifndef PYTHON_PACKER_H
#define PYTHON_PACKER_H

#include <cstring>
#include <string>

namespace python {

/// Rows of numbers one after the other, without gaps.
class Packer {
public:
    template <typename Number>
    Packer& operator<<(Number number) {
        char bytes[sizeof number];
        std::memcpy(bytes, &number, sizeof number);
        m_bytes.append(bytes, sizeof number);
        return *this;
    }
    const std::string& Bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

} // namespace python

#endif // PYTHON_PACKER_H
