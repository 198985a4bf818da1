// norva_demo: a host program that walks jobs through the workflow using only
// the data layer's facade.
//
//   norva_demo [--db HOST]     HOST e.g. tcp://127.0.0.1:3306
//
// Without --db the host comes from ./norva.conf or the default. It registers a
// server and two devices, submits two JDF tickets, subscribes to their status,
// moves them through states, records content files, keeps query/sender pairs
// (in ./QueryURL), lists what is stored and removes everything it added again.
// Exit status 0 only when every checked step succeeded.
#include <ConfigurationControl.h>
#include <StringUtils.h>
#include <norvadatalayer.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

int g_failures = 0;

// Counts and reports a step that did not do what it should.
bool Check(bool ok, const char* what) {
    if (!ok) {
        ++g_failures;
        std::printf("  FAILED: %s\n", what);
    }
    return ok;
}

const char* StateName(int state) {
    switch (state) {
        case 1: return "Waiting";
        case 2: return "Running";
        case 3: return "Suspended";
        case 4: return "Completed";
        default: return "?";
    }
}

std::wstring Jdf(const std::wstring& jobId, const std::wstring& product) {
    return L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           L"<JDF xmlns=\"http://www.CIP4.org/JDFSchema_1_1\" ID=\"n0001\" JobID=\"" + jobId +
           L"\" Type=\"Product\" Status=\"Waiting\" Version=\"1.3\" DescriptiveName=\"" + product +
           L"\"><ResourcePool/></JDF>";
}

bool Contains(const std::list<std::wstring>& list, const std::wstring& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

int Usage(const char* program) {
    std::fprintf(stderr, "usage: %s [--db HOST]\n", program);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "C.UTF-8");
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--db") == 0 && i + 1 < argc)
            ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(argv[++i]));
        else
            return Usage(argv[0]);
    }
    std::printf("norva demo: database %ls\n", ConfigurationControl::GetDBIPAddr().c_str());

    CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
    ITicketDataProvider* tickets = facade->GetTicketDataProvider();
    IDeviceDataProvider* devices = facade->GetDeviceDataProvider();
    IStatusSubDataProvider* subscriptions = facade->GetStatusSubDataProvider();
    IContentDataProvider* contents = facade->GetContentDataProvider();
    IServerDataProvider* servers = facade->GetServerDataProvider();
    IJobSenderDataProvider* senders = facade->GetJobSenderDataProvider();

    // Names carry the process id so that runs against a shared server do not meet.
    const std::wstring run = std::to_wstring(getpid());
    const std::wstring senderId = L"demo-mis-" + run;
    const std::wstring signalUrl = L"http://mis.example/jmf/" + run;

    // 1. A server and its two devices.
    ServerTableRecord server;
    server.COMPNAME = L"demo-rip-" + run;
    server.LOGINSERNAME = L"operator";
    server.LOGINPWD = L"secret";
    server.STYPE = 1;
    server.STATE = 0;
    server.VERSION = L"2.1";
    if (!Check(servers->AddServer(&server), "AddServer")) {
        std::printf("demo FAILED: cannot register a server; is the database reachable?\n");
        return 1;
    }
    std::printf("server %d (%ls) registered\n", server.SERVERID, server.COMPNAME.c_str());

    DeviceTableRecord device[2];
    for (int i = 0; i < 2; ++i) {
        device[i].deviceId = L"demo-press-" + run + (i ? L"-B" : L"-A");
        device[i].serverId = server.SERVERID;
        device[i].devIndex = i + 1;
        device[i].displayName = i ? L"Digital press B" : L"Offset press A";
        device[i].subUrl = L"http://rip.example/jmf/" + std::to_wstring(i + 1);
        device[i].status = 0;
        Check(devices->AddDevice(&device[i]), "AddDevice");
    }
    std::printf("devices %ls, %ls added to server %d\n", device[0].deviceId.c_str(), device[1].deviceId.c_str(),
                server.SERVERID);

    // 2. Two JDF tickets; the library generates the queue entry ids.
    TicketTableRecord ticket[2];
    for (int i = 0; i < 2; ++i) {
        ticket[i].jobId = L"JOB-" + run + L"-" + std::to_wstring(i + 1);
        ticket[i].jdf = Jdf(ticket[i].jobId, i ? L"Flyer A5" : L"Brochure \u00e0 la carte");
        ticket[i].holdDevId = device[i].deviceId;
        ticket[i].senderId = senderId;
        ticket[i].jmfRetUrl = signalUrl;
        ticket[i].status = 0;
        ticket[i].state = 1;
        Check(tickets->AddTicket(&ticket[i]), "AddTicket");
        std::wstring jdf;
        Check(tickets->GetJDF(ticket[i].qentryId, jdf) && jdf == ticket[i].jdf, "GetJDF returns the ticket");
        std::printf("ticket %ls submitted: queue entry %ls on %ls (%zu characters of JDF)\n", ticket[i].jobId.c_str(),
                    ticket[i].qentryId.c_str(), ticket[i].holdDevId.c_str(), jdf.size());
    }

    // 3. Status subscriptions: one global per device, one per queue entry.
    std::vector<int> subscriptionIds;
    for (int i = 0; i < 4; ++i) {
        StatusSubTableRecord sub;
        sub.URL = signalUrl;
        sub.SENDERID = senderId;
        sub.REPEATTIME = 30;
        if (i < 2) {
            sub.DEVICEID = device[i].deviceId;
            sub.QENTRYID = L"-1";  // global: tied to the device, not to a queue entry
            sub.DEVDETLEVEL = L"Brief";
        } else {
            const TicketTableRecord& t = ticket[i - 2];
            sub.DEVICEID = t.holdDevId;
            sub.QENTRYID = t.qentryId;
            sub.JOBID = t.jobId;
            sub.JOBDETAIL = L"Full";
        }
        Check(subscriptions->AddRecord(&sub), "AddRecord (subscription)");
        subscriptionIds.push_back(sub.ID);
    }
    StatusSubTableRecord probe;
    probe.DEVICEID = device[0].deviceId;
    probe.SENDERID = senderId;
    Check(!subscriptions->NeedStatusSubscription(probe, 1) && probe.ID == subscriptionIds[0],
          "NeedStatusSubscription finds the device subscription");
    std::printf("subscriptions %d, %d (devices) and %d, %d (queue entries) for %ls\n", subscriptionIds[0],
                subscriptionIds[1], subscriptionIds[2], subscriptionIds[3], senderId.c_str());

    // 4. The queue entries move through states; the second move is undone.
    for (int i = 0; i < 2; ++i) {
        const std::wstring& q = ticket[i].qentryId;
        int status = -1, before = -1, during = -1, after = -1;
        Check(tickets->UpdateTicketStatus(q, 2) && tickets->GetTicketStatus(q, status) && status == 2,
              "UpdateTicketStatus");
        Check(tickets->GetJDFState(q, before), "GetJDFState");
        Check(tickets->SetJDFState(q, i ? 4 : 3) && tickets->GetJDFState(q, during) && during == (i ? 4 : 3),
              "SetJDFState");
        Check(tickets->RestoreState(q) && tickets->GetJDFState(q, after) && after == before, "RestoreState");
        std::printf("queue entry %ls: status set to %d, state %s -> %s, undone back to %s\n", q.c_str(), status,
                    StateName(before), StateName(during), StateName(after));
    }

    // 5. Content files of the first queue entry.
    const wchar_t* files[] = {L"cover.pdf", L"body.pdf"};
    const int pages[] = {4, 96};
    std::vector<int> contentIds;
    for (int i = 0; i < 2; ++i) {
        ContentTableRecord content;
        content.qentryId = ticket[0].qentryId;
        content.runId = L"RUN-" + std::to_wstring(i + 1);
        content.displayName = files[i];
        content.nPages = pages[i];
        content.fileType = L"application/pdf";
        content.remoteUrl = L"http://mis.example/files/" + std::wstring(files[i]);
        content.cacFilePath = L"/var/cache/norva/" + run + L"/" + files[i];
        content.cacheStat = 1;
        Check(contents->AddRecord(&content), "AddRecord (content)");
        contentIds.push_back(content.contentId);
    }

    // 6. Query id / sender URL pairs.
    CJobSenderData pair[2] = {{L"QRY-" + run + L"-1", signalUrl + L"/1"}, {L"QRY-" + run + L"-2", signalUrl + L"/2"}};
    for (CJobSenderData& p : pair) senders->AddRecord(p);
    CJobSenderData found;
    Check(senders->GetRecordByQueryId(pair[1].queryId, found) && found.url == pair[1].url, "GetRecordByQueryId");
    Check(senders->GetRecord(pair[0].url, found) && found.queryId == pair[0].queryId, "GetRecord (job sender)");
    std::printf("job sender: %ls -> %ls, %ls -> %ls\n", pair[0].queryId.c_str(), pair[0].url.c_str(),
                pair[1].queryId.c_str(), pair[1].url.c_str());

    // 7. What is stored now.
    const std::list<std::wstring> entries = tickets->GetAllQueueEntryIDs();
    Check(Contains(entries, ticket[0].qentryId) && Contains(entries, ticket[1].qentryId), "GetAllQueueEntryIDs");
    std::vector<DeviceTableRecord> onServer;
    Check(devices->GetDeviceRecordsConnectedToServer(server.SERVERID, onServer) && onServer.size() == 2,
          "GetDeviceRecordsConnectedToServer");
    std::vector<ContentTableRecord> stored;
    Check(contents->GetRecords(ticket[0].qentryId, stored) && stored.size() == 2, "GetRecords (content)");
    std::vector<StatusSubTableRecord> subs;
    Check(subscriptions->GetRecords(L"", senderId, L"", L"", true, subs) && subs.size() == 4,
          "GetRecords (subscriptions)");
    std::printf("stored: %zu queue entries in all, %zu devices on server %d, %zu subscriptions of %ls\n",
                entries.size(), onServer.size(), server.SERVERID, subs.size(), senderId.c_str());
    for (const ContentTableRecord& c : stored)
        std::printf("  content id %d, queue entry %ls: %ls, %d pages, %ls\n", c.contentId, c.qentryId.c_str(),
                    c.displayName.c_str(), c.nPages, c.cacFilePath.c_str());

    // 8. Remove everything added, devices before their server.
    for (int id : contentIds) Check(contents->DeleteRecord(id), "DeleteRecord (content)");
    for (int id : subscriptionIds) Check(subscriptions->DeleteRecord(id), "DeleteRecord (subscription)");
    for (const TicketTableRecord& t : ticket) Check(tickets->RemoveTicket(t.qentryId), "RemoveTicket");
    for (const DeviceTableRecord& d : device) Check(devices->DeleteDevice(d.deviceId), "DeleteDevice");
    Check(servers->DeleteServer(server.SERVERID), "DeleteServer");
    for (CJobSenderData& p : pair) Check(senders->DeleteRecord(p), "DeleteRecord (job sender)");

    const std::list<std::wstring> left = tickets->GetAllQueueEntryIDs();
    std::vector<DeviceTableRecord> devicesLeft;
    std::vector<ContentTableRecord> contentLeft;
    std::vector<StatusSubTableRecord> subsLeft;
    ServerTableRecord serverLeft;
    Check(!Contains(left, ticket[0].qentryId) && !Contains(left, ticket[1].qentryId), "queue entries removed");
    Check(devices->GetDeviceRecordsConnectedToServer(server.SERVERID, devicesLeft) && devicesLeft.empty(),
          "devices removed");
    Check(!servers->GetServerRecord(server.SERVERID, &serverLeft), "server removed");
    Check(contents->GetRecords(ticket[0].qentryId, contentLeft) && contentLeft.empty(), "content removed");
    Check(subscriptions->GetRecords(L"", senderId, L"", L"", true, subsLeft) && subsLeft.empty(),
          "subscriptions removed");
    Check(!senders->GetRecordByQueryId(pair[0].queryId, found) && !senders->GetRecordByQueryId(pair[1].queryId, found),
          "job sender pairs removed");
    std::printf("cleaned up: 2 content files, 4 subscriptions, 2 queue entries, 2 devices, 1 server, 2 sender pairs\n");

    if (g_failures) {
        std::printf("demo FAILED: %d step(s) did not succeed\n", g_failures);
        return 1;
    }
    std::printf("demo finished: every step succeeded\n");
    return 0;
}
