"""Answers the host's question at a terminal: prompt.py FILE RUNNER HOST. Prints what does not go as it should."""
import fcntl
import os
import pty
import re
import select
import shutil
import struct
import sys
import termios
import time
import tty

CASES = [  # typed, exit code, whether the file is still there
    (b'no\r', 1, True),
    (b'yes no\r', 1, True),
    (b'yess\r', 1, True),
    (b' yes\r', 1, True),
    (b'\r', 1, True),
    (b'y' * 300 + b'\r', 1, True),
    (b'\x1a\r', 1, True),   # the end of the input
    (b'\x03', 130, True),   # Ctrl+C
    (b'ye\x03', 130, True),
    (b'yes\r', 0, False),
]


def answer(command, typed, question=b'Type yes', meanwhile=lambda: None, columns=200, at_rest=b''):
    """Starts the command at a terminal of its own; returns its exit code and what it wrote there. What happens
    meanwhile comes between the question and the answer; what is typed at rest, each second in which it is silent."""
    child, terminal = pty.fork()
    if child == 0:
        os.execvp(command[0], command)
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack('HHHH', 25, columns, 0, 0))
    tty.setraw(terminal)  # as it is under a console window: keys come one by one
    seen = b''
    sent = False
    end = time.monotonic() + 20
    while time.monotonic() < end:
        if not select.select([terminal], [], [], 1)[0]:
            os.write(terminal, at_rest)
            continue
        try:
            piece = os.read(terminal, 4096)
        except OSError:
            break
        seen += piece
        if not sent and question in seen:
            meanwhile()
            os.write(terminal, typed)
            sent = True
    else:
        os.kill(child, 9)
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), seen


def main():
    path, *command = sys.argv[1:]
    target = 'Z:' + path.replace('/', '\\')
    for typed, expected, stays in CASES:
        with open(path, 'w', encoding='utf-8') as file:
            file.write('x')
        code, seen = answer(command + ['wipe', 'file', target], typed)
        if code != expected or os.path.exists(path) != stays:
            print(f'{typed!r}: exit code {code}, {"still there" if os.path.exists(path) else "gone"}: {seen!r}')
    # What was exchanged after it was shown stays: the tree, a folder in it, the folder above, a file. It is a link
    # to another one by then, or the other one itself.
    for what, swapped, other in [('tree', 'root', ''), ('tree', 'root/d', ''), ('tree', '', ''),
                                 ('file', 'root/d/f', 'keep/f'), ('tree', 'root/d/f', 'keep/f'),
                                 ('tree', 'root/d', 'keep/d'), ('tree', 'root/e', 'keep/empty')]:
        top = path + '.tree'
        for folder in ('keep', 'keep/root', 'keep/root/d', 'keep/d', 'keep/empty', 'top', 'top/root', 'top/root/d', 'top/root/e'):
            os.makedirs(os.path.join(top, folder))
        precious = [os.path.join(top, name) for name in ('keep/root/d/f', 'keep/d/f', 'keep/f')]
        for name in precious + [os.path.join(top, 'top/root/d/f')]:
            with open(name, 'w', encoding='utf-8') as file:
                file.write('x')

        place = os.path.join(top, 'top', swapped).rstrip('/')

        def swap(place=place, other=other and os.path.join(top, other), link=os.path.join(top, 'keep', swapped).rstrip('/')):
            os.rename(place, place + '.aside')
            if other:
                os.rename(other, place)
            else:
                os.symlink(link, place)
        operand = target + '.tree\\top\\root' + ('\\d\\f' if what == 'file' else '')
        code, seen = answer(command + ['wipe', what, operand], b'yes\r', meanwhile=swap)
        if other == 'keep/d':
            precious[1] = os.path.join(place, 'f')
        elif other == 'keep/f':
            precious[2] = place
        left = [os.path.exists(name) for name in precious + [place]]
        if code != 1 or not all(left):
            print(f'{what} with {swapped!r} exchanged for {other!r}: exit code {code}, left {left}: {seen!r}')
        shutil.rmtree(top)
    # Of the boot-time list goes the line that was shown, or none.
    boot_list = os.path.join(os.environ['BOOT_LIST'])
    line = '*FileShred*\t*\\??\\C:\\%s*\t*1*\t*1\r\n'

    def waits(*files):
        with open(boot_list, 'wb') as file:
            file.write(''.join(line % name for name in files).encode('utf-16-le'))

    for typed, after, expected, left in [(b'no\r', 'ab', 1, 'ab'), (b'yes\r', 'xb', 1, 'xb'), (b'yes\r', 'ab', 0, 'b')]:
        waits('a', 'b')
        code, seen = answer(command + ['boot', 'drop', '1'], typed, meanwhile=lambda: waits(*after))
        with open(boot_list, 'rb') as file:
            told = file.read().decode('utf-16-le').lstrip('\0\r\n')
        if code != expected or told != ''.join(line % name for name in left):
            print(f'{typed!r}, then {after}: exit code {code}, {told!r}: {seen!r}')
    # A run takes what it has shown; what came on the list since waits.
    for name in 'ab':
        with open(path + name, 'w', encoding='utf-8') as file:
            file.write('x')
    names = [target.replace('Z:\\', '') + name for name in 'ab']
    line = line.replace('C:', 'Z:')
    waits(names[0])
    code, seen = answer(command + ['boot', 'run'], b'yes\r', meanwhile=lambda: waits(*names))
    with open(boot_list, 'rb') as file:
        told = file.read().decode('utf-16-le').lstrip('\0\r\n')
    if (code, told) != (1, line % names[1]) or os.path.exists(path + 'a') or not os.path.exists(path + 'b'):
        print(f'a run while lines are added: exit code {code}, {told!r}: {seen!r}')
    waits(names[1])
    code, seen = answer(command + ['boot', 'run'], b'yes\r', meanwhile=lambda: os.remove(boot_list))
    if code != 1 or b'not on the list any more' not in seen or not os.path.exists(path + 'b'):
        print(f'a run while its list is removed: exit code {code}: {seen!r}')
    # Nor does it take a file that has another's name by now, or a name that nobody had.
    for there in (True, False):
        for name in 'ab' if there else 'b':
            with open(path + name, 'w', encoding='utf-8') as file:
                file.write(name)
        waits(names[0])
        code, seen = answer(command + ['boot', 'run'], b'yes\r', meanwhile=lambda: os.replace(path + 'b', path + 'a'))
        told = [f'{int(there)} file{"" if there else "s"}, each', f'left alone: {int(not there)}', 'it is not what was shown']
        if code != 1 or not os.path.exists(path + 'a') or any(text.encode() not in seen for text in told):
            print(f'a run while its file is exchanged, {there}: exit code {code}: {seen!r}')
        if os.path.exists(path + 'a'):
            os.remove(path + 'a')
    os.remove(boot_list)
    # The lines of a table fit the terminal, the long ones cut with a mark.
    for columns, cut in [(40, True), (60, True), (200, False)]:
        code, seen = answer(command + ['processes'], b'', b'?', columns=columns)
        lines = [line for line in re.sub(rb'\x1b\[[?0-9;]*[a-zA-Z]', b'', seen).split(b'\r\n') if line]
        if code != 0 or len(lines) < 5 or max(map(len, lines)) >= columns or (b'...' in seen) != cut or b'sysmaint.exe' not in seen:
            print(f'processes on {columns} columns: exit code {code}: {lines!r}')
    # Who reads lines ends while it waits for the next one.
    code, seen = answer(command + ['topic', 'send', 'nobody'], b'a\r', b'?', at_rest=b'\x03')
    if code != 130:
        print(f'topic send: exit code {code}: {seen!r}')
    # A password does not show while it is typed.
    tool = os.path.join(os.path.dirname(command[-1]), 'snapshot_tool.exe')
    os.environ['SYSMAINT_TOOL_RECORD'] = target
    os.environ.pop('SYSMAINT_SNAPSHOT_PASSWORD', None)
    snapshot = ['snapshot', 'create', 'n', '--tool', 'Z:' + tool.replace('/', '\\'), '--password']
    for typed, expected, line in [(b'geheim\r', 0, 'vrlcmd /n /name "n" /pass "geheim"'), (b'gehe\x03', 130, ''), (b'\r', 2, '')]:
        open(path, 'w', encoding='utf-8').close()
        code, seen = answer(command + snapshot, typed, b'Password:')
        with open(path, encoding='utf-16-le') as file:
            told = file.read().split('\n')[0]
        if code != expected or told != line or b'gehe' in seen:
            print(f'{typed!r}: exit code {code}, {told!r}: {seen!r}')


main()
