// Serves an empty drive on the folder given as the only argument until it is
// killed: a test makes a dead mount by killing it.
#include <QCoreApplication>

#include "drive/VHFuseMount.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    QCoreApplication app(argc, argv);
    char program[] = "varnholt", foreground[] = "-f", dashO[] = "-o", options[] = "fsname=Varnholt";
    char* args[] = {program, argv[1], foreground, dashO, options};
    return vh::mount_varnholt(5, args);
}
