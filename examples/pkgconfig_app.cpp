// Smallest host program of the installed package: takes the facade, adds and
// removes one server. Build it against the installed library only:
//   g++ -std=c++17 pkgconfig_app.cpp $(pkg-config --cflags --libs norvadatalayer)
//   ./a.out [--db HOST]
#include <ConfigurationControl.h>
#include <StringUtils.h>
#include <norvadatalayer.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--db") == 0)
        ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(argv[2]));
    else if (argc != 1) {
        std::fprintf(stderr, "usage: %s [--db HOST]\n", argv[0]);
        return 2;
    }

    IServerDataProvider* servers = CDataAccessProvider::GetInstance()->GetServerDataProvider();
    ServerTableRecord server;
    server.COMPNAME = L"pkgconfig-app";
    ServerTableRecord back;
    const bool ok = servers->AddServer(&server) && servers->GetServerRecord(server.SERVERID, &back) &&
                    back.COMPNAME == server.COMPNAME && servers->DeleteServer(server.SERVERID) &&
                    !servers->GetServerRecord(server.SERVERID, &back);
    std::printf(ok ? "OK\n" : "FAILED\n");
    return ok ? 0 : 1;
}
