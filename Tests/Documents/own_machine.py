"""A small machine of its own for a script: network, shared memory, processes, name. It ends with the script, even if
that is killed."""
import os
import shutil
import socket
import subprocess
import sys

SKIPPED = 77


def skip(why):
    print(f'{os.path.basename(sys.argv[0])}: skipped, {why}')
    sys.exit(SKIPPED)


def enter():
    """Runs the script again in new namespaces and returns there. Skips the test if namespaces are not allowed."""
    if os.environ.get('KIV_INSIDE') == '1':
        set_up()
        return
    for program in ('unshare', 'ip', 'bash', 'mount'):
        if shutil.which(program) is None:
            skip(f'there is no program {program}')
    own = ['unshare', '--net', '--ipc', '--uts', '--mount', '--pid', '--fork', '--kill-child', '--mount-proc']
    if os.geteuid() != 0:
        own += ['--user', '--map-root-user']
    if subprocess.run([*own, 'true'], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        skip('namespaces cannot be made here')
    os.environ['KIV_INSIDE'] = '1'
    os.execvp('unshare', [*own, sys.executable, *sys.argv])


def set_up():
    del os.environ['KIV_INSIDE']
    for line in ('ip link set lo up', 'ip route add 224.0.0.0/4 dev lo',
                 'mount -t tmpfs tmpfs /dev/shm', 'mount -t tmpfs tmpfs /run'):
        subprocess.run(line.split(), check=True)
    socket.sethostname('vm')
