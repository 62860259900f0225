/* The floor a line editor is measured against: raw mode, then every key
   byte read and written back with one system call each, until "quit" and
   Return arrive. No editing, no history, no drawing. */
#include <string.h>
#include <termios.h>
#include <unistd.h>

int main(void) {
    struct termios saved, raw;
    char tail[5] = {0};
    unsigned char b;
    if (tcgetattr(0, &saved) != 0) return 1;
    raw = saved;
    cfmakeraw(&raw);
    tcsetattr(0, TCSADRAIN, &raw);
    while (read(0, &b, 1) == 1) {
        if (write(1, &b, 1) != 1) break;
        memmove(tail, tail + 1, 4);
        tail[4] = (char)b;
        if (memcmp(tail, "quit\r", 5) == 0) break;
    }
    tcsetattr(0, TCSADRAIN, &saved);
    return 0;
}
