// Built where there is no libewf.

#include "expert_image.h"
#include "recordings/error.h"

namespace recordings {

std::unique_ptr<Source> OpenExpertImage(std::unique_ptr<FileSource> first) {
    throw Error(ErrorKind::NotSupported,
                first->Name() + ": is an E01 image, and this program was built without libewf, which reads "
                                "them; convert it to a plain image");
}

} // namespace recordings
