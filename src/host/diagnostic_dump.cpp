#include "host/diagnostic_dump.h"

#include <iostream>

#include <boost/make_shared.hpp>

#include "drive/device_enumerator.h"
#include "drive/drive_handle.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/winxml/list_child.h"
#include "foundation/winxml/record_stream.h"
#include "foundation/winxml/xml.h"
#include "host/diagnostic_failures.h"
#include "host/diagnostic_files.h"
#include "records/device_record_writer.h"

namespace diagnostics {

namespace {

constexpr char16_t changer_file[] = u"./changer.xml";
constexpr char16_t dump_file[] = u"./dumpinformation.xml";

using list_writer = void (*)(winxml::record_stream_t& list, IChangerHandle& changer);

/// A child with a list. One that can't be read stands there without its records.
void add_list(const winxml::node_t& node, std::string_view name, list_writer write_list, IChangerHandle& changer) {
    winxml::record_stream_t list(name, winxml::record_form::document);
    try {
        write_list(list, changer);
    } catch (const std::exception&) {
        winxml::add_element(node, name);
        throw;
    }
    winxml::add_list(node, list);
}

void write_head(const winxml::node_t& node, IChangerHandle& changer) {
    CDeviceRecordWriter::WriteChangerIdentity(node, changer);
    CDeviceRecordWriter::WriteAddress(node, changer);
    CDeviceRecordWriter::WriteProductData(node, changer);
}

GET_CHANGER_PARAMETERS write_parameters(const winxml::node_t& node, IChangerHandle& changer) {
    const GET_CHANGER_PARAMETERS parameters = changer.GetParameters();
    CDeviceRecordWriter::WriteParameters(node, parameters);
    return parameters;
}

void write_slots(const winxml::node_t& node, const GET_CHANGER_PARAMETERS& parameters, IChangerHandle& changer) {
    if (parameters.NumberStorageElements != 0) {
        add_list(node, "Slots", CDeviceRecordWriter::WriteSlotStatusList, changer);
    }
}

void write_ports(const winxml::node_t& node, const GET_CHANGER_PARAMETERS& parameters, IChangerHandle& changer) {
    if (parameters.NumberIEElements != 0) {
        add_list(node, "IEPortsStatuses", CDeviceRecordWriter::WriteIEPortStatusList, changer);
    }
}

void write_drives(const winxml::node_t& node, IChangerHandle& changer) {
    add_list(node, "Drives", CDeviceRecordWriter::WriteDriveStatusList, changer);
}

void report(const std::string& link, const char* text, const std::exception& failure) {
    TellFailure(link + ": " + text, failure);
    g_log.LogError(text, failure);
}

/// False: the section of this device has failed, and the log says why.
template <typename Section>
bool guarded(const std::string& link, const char* failure, Section section) {
    try {
        section();
        return true;
    } catch (const std::exception& e) {
        report(link, failure, e);
        return false;
    }
}

/// The dump as it grows.
class dump_t {
public:
    explicit dump_t(dump_form form)
        : form_(form),
          document_(winxml::create_document()),
          root_(winxml::add_element(winxml::document_node(document_), "Devices")) {}

    void add_changer(const std::string& link) {
        const winxml::node_t node = winxml::add_element(root_, "Changer");
        boost::shared_ptr<IChangerHandle> changer;
        const bool opened = guarded(link, "Problem with open lib", [&] {
            changer = OpenChanger(link);
            write_head(node, *changer);
        });
        if (!opened) {
            return;
        }
        save();
        guarded(link, "Problem with gathering information about drives", [&] { add_elements(link, node, *changer); });
        guarded(link, "Problem with gathering information about drives", [&] {
            write_drives(node, *changer);
            save();
        });
    }

    void add_drives() {
        const std::vector<std::string> links = CDeviceEnumerator::FindTapeDrives();
        if (links.empty()) {
            std::cout << "We have no drives." << std::endl;
            g_log.LogError("We have no drives.");
            save();
        }
        for (const std::string& link : links) {
            add_drive(link);
            save();
        }
    }

private:
    void save() const { SaveDocument(dump_file, document_); }

    void add_elements(const std::string& link, const winxml::node_t& node, IChangerHandle& changer) {
        const GET_CHANGER_PARAMETERS parameters = write_parameters(node, changer);
        guarded(link, "Problem with gathering information about slots", [&] { write_slots(node, parameters, changer); });
        if (form_ == dump_form::full) {
            guarded(link, "Problem with IEPorts statuses", [&] { write_ports(node, parameters, changer); });
        }
        save();
    }

    void add_drive(const std::string& link) {
        const winxml::node_t node = winxml::add_element(root_, "Drive");
        try {
            CDriveHandle drive(link);
            CDeviceRecordWriter::WriteDrive(node, drive, drive.GetProductName());
            CDeviceRecordWriter::WriteAddress(node, drive);
            CDeviceRecordWriter::WriteBlockSizes(node, drive);
        } catch (const std::exception& e) {
            report(link, "Problem with Open Drive", e);
            winxml::set_attribute(node, "Error", e.what());
        }
    }

    dump_form form_;
    winxml::document_t document_;
    winxml::node_t root_;
};

}  // namespace

boost::shared_ptr<IChangerHandle> OpenChanger(const std::string& link) {
    return CreateChangerHandle(link, false, boost::make_shared<boost::mutex>());
}

boost::shared_ptr<IChangerHandle> OpenFirstChanger(const std::vector<std::string>& links) {
    if (links.empty()) {
        throw exc::runtime_exc_t("There is no changer that this action could work on.");
    }
    return OpenChanger(links.front());
}

void RecordFirstChanger() {
    g_log.LogInfo("Record first changer");
    const boost::shared_ptr<IChangerHandle> changer = OpenFirstChanger(CDeviceEnumerator::FindMediumChangers(false));
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "Changer");
    write_head(root, *changer);
    const GET_CHANGER_PARAMETERS parameters = write_parameters(root, *changer);
    write_slots(root, parameters, *changer);
    write_ports(root, parameters, *changer);
    write_drives(root, *changer);
    SaveDocument(changer_file, document);
}

void RecordDump(dump_form form) {
    g_log.LogInfo("Record dump information");
    const std::vector<std::string> links = CDeviceEnumerator::FindMediumChangers(false);
    dump_t dump(form);
    for (const std::string& link : links) {
        dump.add_changer(link);
    }
    dump.add_drives();
}

}  // namespace diagnostics
