#include "catalog/error.h"
#include "engines.h"

namespace catalog {

bool ServersSupported() {
    return false;
}

std::vector<std::string> FilesOfServer(const std::string& /*location*/) {
    return {};
}

std::unique_ptr<Database> OpenPostgres(const std::string& /*location*/) {
    throw Error("this program was built without PostgreSQL's library; give the catalogue a file");
}

} // namespace catalog
