# A raw FTP client for the receiver's tests: every reply exactly as the server sent it.
# The test passes the port and the password in FTP_PORT and FTP_PASSWORD.
import os
import socket
import time

HOST = '127.0.0.1'
PORT = int(os.environ.get('FTP_PORT', '0'))
PASSWORD = os.environ.get('FTP_PASSWORD', '')


class Raw:
    def __init__(self, port=None, source=None, timeout=10):
        self.s = socket.create_connection((HOST, port or PORT), timeout=timeout,
                                          source_address=(source, 0) if source else None)
        self.f = self.s.makefile('rb')
        self.greeting = self.reply()

    def send(self, data):
        self.s.sendall(data)

    def reply(self):
        """One whole reply (a multi-line one joined with newlines), or 'EOF' once closed."""
        try:
            line = self.f.readline()
        except (ConnectionResetError, socket.timeout):
            return 'EOF'
        if not line:
            return 'EOF'
        text = line.decode('utf-8').rstrip('\r\n')
        if len(text) >= 4 and text[3] == '-':
            lines = [text]
            while True:
                more = self.f.readline().decode('utf-8').rstrip('\r\n')
                lines.append(more)
                if more.startswith(text[:3] + ' ') or not more:
                    break
            return '\n'.join(lines)
        return text

    def cmd(self, line):
        if isinstance(line, str):
            line = line.encode('utf-8')
        self.send(line + b'\r\n')
        return self.reply()

    def login(self, user='corvane', password=None):
        self.cmd('USER ' + user)
        return self.cmd('PASS ' + (PASSWORD if password is None else password))

    def silent_for(self, seconds):
        """True when nothing arrives for that long."""
        self.s.settimeout(seconds)
        try:
            self.s.recv(1, socket.MSG_PEEK)
            return False
        except socket.timeout:
            return True
        finally:
            self.s.settimeout(10)

    def passive(self, extended=True, source=None):
        """Sends EPSV or PASV; returns (reply, connected data socket or None)."""
        r = self.cmd('EPSV' if extended else 'PASV')
        if extended and r.startswith('229'):
            port = int(r.split('|||')[1].split('|')[0])
        elif not extended and r.startswith('227'):
            nums = r[r.index('(') + 1:r.index(')')].split(',')
            port = int(nums[4]) * 256 + int(nums[5])
        else:
            return r, None
        d = socket.create_connection((HOST, port), timeout=10,
                                     source_address=(source, 0) if source else None)
        return r, d

    def store(self, name, data, extended=True):
        """STOR over a passive connection; returns the replies after PASV/EPSV."""
        r, d = self.passive(extended)
        if d is None:
            return [r]
        first = self.cmd('STOR ' + name)
        if not first.startswith('150'):
            d.close()
            return [first]
        d.sendall(data)
        d.close()
        return [first, self.reply()]

    def closed(self):
        return self.reply() == 'EOF'


def jpeg(tag=b'', size=2000):
    """A minimal well-formed JPEG stream: SOI, a comment, a scan of `size` bytes starting with
    `tag`, EOI."""
    payload = (tag + bytes((i * 7) % 251 for i in range(size)))[:max(size, len(tag))].replace(b'\xff', b'\xfe')
    com = b'\xff\xfe' + (len(b'corvane') + 2).to_bytes(2, 'big') + b'corvane'
    sos = b'\xff\xda' + (8).to_bytes(2, 'big') + b'\x01\x01\x00\x00\x3f\x00'
    return b'\xff\xd8' + com + sos + payload + b'\xff\xd9'
