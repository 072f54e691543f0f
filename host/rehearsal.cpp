#include "host/rehearsal.h"

#include "framework/owned.h"
#include "framework/xml.h"
#include "host/configuration_path.h"
#include "transaction/record.h"

#include <fcntl.h>
#include <filesystem>

namespace fs = std::filesystem;

namespace host
{

Rehearsal::Rehearsal(const transaction::Say& say, const transaction::Waiting& waiting)
    : m_lock(configuration_path, say, transaction::Lock::Create::no, waiting)
{
    const transaction::Lines lines = transaction::Record(m_lock.place()).read();
    const owned<IXmlDocument> document(newXmlDocument());
    document->load(configuration_path);
    m_folder = std::make_unique<ScratchFolder>();
    const fs::path copy = fs::absolute(configuration_path);
    fs::create_directories(copy.parent_path());
    document->save(copy.c_str()); // in the scratch folder, which is the working directory now
    const transaction::Place place{
        copy.string(),
        fwbase::Descriptor(open(copy.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))};
    transaction::Record(place).write(lines);
}

} // namespace host
