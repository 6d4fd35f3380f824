// The least that one AT exchange can cost: open the tty, lock it, let it settle, write the command, read up to "OK",
// close. The yardstick of `./run bench`; it is linked with the libraries of vela_modem so that loading costs the same.
//
//   minimal_at DEVICE COMMAND SETTLE_MS
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc != 4) {
        fputs("Usage: minimal_at DEVICE COMMAND SETTLE_MS\n", stderr);
        return 2;
    }
    const int fd = open(argv[1], O_RDWR | O_NOCTTY | O_NONBLOCK);
    struct termios saved;
    if (fd < 0 || ioctl(fd, TIOCEXCL) != 0 || tcgetattr(fd, &saved) != 0 || fcntl(fd, F_SETFL, 0) != 0) {
        perror(argv[1]);
        return 1;
    }
    struct termios raw = saved;
    cfmakeraw(&raw);
    cfsetspeed(&raw, B115200);
    raw.c_cflag |= CREAD | CLOCAL;
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 5;
    tcsetattr(fd, TCSANOW, &raw);
    const useconds_t settle_ms = (useconds_t)strtoul(argv[3], NULL, 10);
    if (settle_ms > 0) {
        usleep(settle_ms * 1000);
    }
    tcflush(fd, TCIOFLUSH);
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        perror("flock");
        return 1;
    }
    char command[256];
    const int length = snprintf(command, sizeof command, "%s\r\n", argv[2]);
    if (length < 0 || (size_t)length >= sizeof command || write(fd, command, (size_t)length) != length) {
        perror("write");
        return 1;
    }
    char reply[4096];
    size_t received = 0;
    reply[0] = '\0';
    while (strstr(reply, "OK") == NULL && strstr(reply, "ERROR") == NULL && received < sizeof reply - 1) {
        const ssize_t got = read(fd, reply + received, sizeof reply - 1 - received);
        if (got <= 0) {
            break;
        }
        received += (size_t)got;
        reply[received] = '\0';
    }
    tcsetattr(fd, TCSANOW, &saved);
    close(fd);
    printf("\n%s", reply);
    return received > 0 ? 0 : 1;
}
