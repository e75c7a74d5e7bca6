#ifndef MEDIA_SRC_SIGNED_FILE_H
#define MEDIA_SRC_SIGNED_FILE_H

#include <string>

#include "file_writer.h"
#include "media/output_file.h"
#include "media/request.h"

namespace media {

/// Looks at the place of the signature of a request's manifest, before there is any work to be lost.
/// @throws Error when it is taken: an unsigned manifest must not stand beside another one's signature
void CheckSignaturePlace(const Request& request, const OutputRules& rules);

/// A file that may get a signature: then its text is kept, since Ed25519 takes a message as a whole.
class SignedFile {
public:
    /// @param key null: nobody signs
    SignedFile(OutputFile& file, const SigningKey* key) : m_file(file), m_key(key) {}

    void Write(const std::string& text) {
        m_file.Bytes().Write(text.data(), text.size());
        if (m_key != nullptr) {
            m_text += text;
        }
    }

    /// Fills the file of the signature. There must be a key.
    void Sign(OutputFile& signature) const {
        const std::string bytes = m_key->Sign(m_text);
        signature.Bytes().Write(bytes.data(), bytes.size());
        signature.Complete();
    }

private:
    OutputFile& m_file;
    const SigningKey* m_key;
    std::string m_text;
};

} // namespace media

#endif // MEDIA_SRC_SIGNED_FILE_H
