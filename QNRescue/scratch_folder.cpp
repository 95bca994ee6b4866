#include "QNRescue/scratch_folder.hpp"

#include <boost/filesystem/operations.hpp>

namespace qnrescue {

QN::filesystem::path new_scratch_location() {
    return QN::filesystem::temp_directory_path() / QN::filesystem::unique_path("qnrescue.%%%%%%");
}

boost::system::error_code remove_scratch_folder(QN::filesystem::path const & folder) {
    boost::system::error_code error;
    QN::filesystem::remove_all(folder, error);
    return error;
}

} // namespace qnrescue
