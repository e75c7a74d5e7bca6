#include "signed_file.h"

#include "media/error.h"
#include "output_place.h"

namespace media {

void CheckSignaturePlace(const Request& request, const OutputRules& rules) {
    const OutputPlace place(request.SignatureName());
    if (request.key != nullptr) {
        place.Check(rules);
        return;
    }
    try {
        place.Check({rules.source, false});
    } catch (const Error& error) {
        if (error.Kind() == ErrorKind::CannotMake) {
            return; // not even looked at: it may be too long for a name
        }
        if (error.Kind() == ErrorKind::OutputIsSource) {
            throw;
        }
        throw Error(ErrorKind::StaleSignature,
                    request.SignatureName() +
                        ": is the signature of another manifest, and would not fit the new one");
    }
}

} // namespace media
