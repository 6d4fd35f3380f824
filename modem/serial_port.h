// Serial port: the modem's USB ttys in raw 8N1 mode, by termios(3).
//
// Two families share one implementation: uart* work on the port that uartOpen opened last, for a caller with one port;
// Myuart* take the descriptor. Mind the argument orders: (length, buffer) in the first, (descriptor, length, buffer) in
// the second. Everything is synchronous and nothing is buffered here. One record holds the terminal attributes to put
// back on closing, those found by the latest uartOpen, whichever descriptor is closed. Not for use by several threads.
#pragma once

// Opens the port in raw mode at one of the speeds 300, 1200, 2400, 4800, 9600, 19200, 38400, 57600 or 115200, with
// RTS/CTS flow control where `flow_control` is not zero, for exclusive use (TIOCEXCL). Plain reads then end after
// `timeout_ms` of silence (in steps of 100 ms, rounded down, 25.5 s at most), or, where it is negative, with the first
// byte. Waits 50 ms for the port to settle and discards what is queued. Returns the descriptor and makes it the current
// port; or -1, with one line on standard error.
int uartOpen(const char *path, int baud, int flow_control, int timeout_ms);

// Sets the descriptor once more to what the latest uartOpen set it to: another process that closes the same tty puts
// back the attributes that it found, echo and line editing among them. Returns tcsetattr's result.
int MyuartReapply(int fd);

// Put the saved attributes back and close; return close's result. The current port keeps its number.
int uartClose();
int MyuartClose(int fd);

// Discard what is queued in both directions. The first returns tcflush's result, -1 without a current port.
int flushIoBuffer();
void MyflushIoBuffer(int fd);

// Reads until exactly `length` bytes have come, however long that takes: a port that has hung up never ends it. Returns
// length; -1 on an error or without a current port.
int uartRx(int length, void *buffer);

// One read of at most `length` bytes. With a timeout above 0 it waits that long, in steps of 100 ms rounded down (so
// below 100 ms it takes what is there); with 0 or less it waits without limit for the first byte. Returns the bytes
// read, 0 on a timeout, -1 on an error. What is still to be sent goes out first.
int uartRxExpires(int length, void *buffer, int timeout_ms);
int MyuartRxExpires(int fd, int length, void *buffer, int timeout_ms);

// One plain read with the port's present settings; -1 without a current port.
int uartRxNonBlocking(int length, void *buffer);

// Bytes waiting in the input queue, or -1.
int uartRxPeek();

// Writes everything, trying again at once while the port is busy (EAGAIN). Returns 0; -1 on another error or without a
// current port.
int uartTx(int length, const void *buffer);

// Write until done or until a write brings nothing or fails. Return the number of bytes that were not written.
int uartTxNonBlocking(int length, const void *buffer);
int MyuartTxNonBlocking(int fd, int length, const void *buffer);
