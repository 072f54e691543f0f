# Runs optimize_host for the modules and reads its answers. Runs on Python 2.7 and 3.
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import os
import re
import select
import threading

from ansible.module_utils.common.text.converters import to_text

OPTIONS = {
    'directory': {'type': 'path', 'default': '/var/lib/optimize_option'},
    'lock_timeout': {'type': 'int', 'default': 30},
}


def end_with_reader(program):
    """Ends a program that waits for the lock as soon as nobody reads this module's output any more, for example
    after the timeout of a task. A program that has begun its call ignores the signal."""
    def watch():
        output = select.poll()
        output.register(1, 0)  # errors and hang-ups are always reported
        output.poll()
        program.terminate()

    thread = threading.Thread(target=watch)
    thread.daemon = True
    thread.start()


def give_input(text):
    """Makes a text the standard input of the programs that are run. If run_command passed it on, a program that
    ends before it reads would fail with a broken pipe instead of its own reason."""
    read_end, write_end = os.pipe()
    os.write(write_end, text.encode())
    os.close(write_end)
    os.dup2(read_end, 0)


def run(module, arguments):
    """Runs optimize_host. Returns its exit status, its standard error and, for each call, the items and the last
    reply, which is empty if there is none. The last call is an empty one."""
    command = [module.get_bin_path('optimize_host', required=True), '--json',
               '-C', module.params['directory'], '--wait', str(module.params['lock_timeout'])]
    command += ['--dry-run'] * module.check_mode + arguments
    rc, out, err = module.run_command(command, expand_user_and_vars=False,
                                      before_communicate_callback=end_with_reader)
    calls = [([], {})]
    for line in out.split('\n')[:-1]:  # without a last line that was cut off
        reply = json.loads(line)
        if reply['reply'] == 'item':
            calls[-1][0].append(reply)
        else:
            calls[-1][1].update(reply)
            calls.append(([], {}))
    return rc, to_text(err), calls


def label(service):
    return '%s (%d)' % (service['name'], service['id']) if 'name' in service else 'id %d' % service['id']


def failed(final):
    """Whether a call was not made or has failed."""
    return final.get('reply') != 'final' or 'error' in final


def messages(err, finals):
    """The warnings of optimize_host: its lines except errors, those about a requested service, and the line about an
    empty record."""
    known = [': %s ' % label(each) for final in finals for kind in ('unchanged', 'not_handled')
             for each in final.get(kind, [])]
    errors = tuple(final['error'] for final in finals if 'error' in final)
    nothing = ': nothing is switched off or ignored'
    return [re.sub('^(optimize_host: )standard input:[0-9]+: ', r'\1', line) for line in err.splitlines()
            if line.startswith('optimize_host: ') and not line.endswith(errors + (nothing,))
            and not any(each in line for each in known)]


def reason(rc, finals, warnings, skip=()):
    """Why a run failed, in the words of optimize_host. Services with a reason in `skip` do not count as failures."""
    for final in finals:
        if 'error' in final:
            return final['error']
    reasons = ['%s not handled: %s' % (label(each), each['message'])
               for final in finals for each in final.get('not_handled', []) if each['reason'] not in skip]
    return '; '.join(reasons or warnings + ['optimize_host ended with status %d' % rc])
