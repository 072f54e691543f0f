# Brings services into a state with optimize_host. Runs on Python 2.7 and 3.
"""Ansible module optimize_option."""

DOCUMENTATION = r'''
module: optimize_option
author: Optimize_Option maintainers
version_added: 1.2.0
short_description: Switch off, restore or ignore services with optimize_host
description:
  - Brings services that are configured for C(optimize_host) into a state.
  - Services that are in this state already stay as they are.
  - A service that is switched off comes back at exactly the run levels that it had.
  - Services are enabled or disabled for the next boot or run-level change. Nothing is started or stopped.
options:
  name:
    description:
      - Names or ids of the services, as C(optimize_host ls_service) shows them.
      - If one of the names is not configured, nothing is changed.
    type: list
    elements: str
    required: true
    aliases: [services]
  state:
    description:
      - C(optimized) switches off services that are running and not ignored.
      - C(restored) switches services that are optimized back on.
      - C(ignored) marks services that are running, so that they are left alone.
      - C(listed) removes this mark, so that they are listed as candidates again.
    type: str
    choices: [optimized, restored, ignored, listed]
    required: true
  directory:
    description:
      - The folder of the configuration, which holds C(config/system_operation/conf.xml).
    type: path
    default: /var/lib/optimize_option
requirements:
  - C(optimize_host) 1.1 or later, C(chkconfig) and C(sed) on the machine
notes:
  - A service that cannot be brought into the state fails the task, after the other services were handled.
  - A service that is not on the machine, or that somebody else switched off, is C(unavailable) and fails the
    task, too. See the example with C(failed_when).
  - Run as root, for example with C(become).
attributes:
  check_mode:
    description:
      - Makes the same call on a copy of the configuration, with a C(chkconfig) that only lists.
      - Does not foresee missing rights to write.
    support: full
  diff_mode:
    description: Shows the state of each changed service before and after.
    support: full
'''

EXAMPLES = r'''
- name: Switch off what a server does not need
  optimize_option:
    name: [cups, rsync]
    state: optimized

- name: Switch off the printing service where it is installed
  optimize_option:
    name: cups
    state: optimized
  register: printing
  failed_when: printing is failed and 'unavailable' not in printing.msg

- name: Switch the printing service back on
  optimize_option:
    name: cups
    state: restored

- name: Leave the time-of-day jobs alone
  optimize_option:
    name: atd
    state: ignored
'''

RETURN = r'''
handled:
  description: The services that were changed, or would be in check mode.
  returned: if optimize_host was run
  type: list
  elements: dict
  sample: [{"id": 3, "name": "cups"}]
unchanged:
  description: The services that were in the state already.
  returned: if optimize_host was run
  type: list
  elements: dict
  sample: [{"id": 30, "name": "rsync"}]
not_handled:
  description: The services that could not be brought into the state, with the reason.
  returned: if optimize_host was run
  type: list
  elements: dict
  sample: [{"id": 15, "name": "sshd", "reason": "ignored"}]
'''

import json
import os
import shutil
import tempfile

from ansible.module_utils.basic import AnsibleModule

# The operation that leads to a state, and what optimize_host calls the states before and after it.
STATES = {
    'optimized': (['optimize_service'], 'none', 'optimized'),
    'restored': (['restore_service'], 'optimized', 'none'),
    'ignored': (['ignore_service', 'on'], 'none', 'ignored'),
    'listed': (['ignore_service', 'off'], 'ignored', 'none'),
}

CONFIGURATION = 'config/system_operation/conf.xml'

# Replaces chkconfig in check mode. $REAL_PATH is the real search path.
LISTING_CHKCONFIG = '''#!/bin/sh
[ "$1" = --list ] || exit 0
PATH=$REAL_PATH
export PATH
exec chkconfig "$@"
'''


def rehearsal(module, directory, path):
    """Returns a copy of the configuration's folder, and an environment in which nothing is switched."""
    copy = tempfile.mkdtemp(dir=module.tmpdir)
    target = os.path.join(copy, CONFIGURATION)
    os.makedirs(os.path.dirname(target))
    source = os.path.realpath(os.path.join(directory, CONFIGURATION))
    for suffix in ('', '.lock'):  # the lock file may hold a call that has to be completed
        if os.path.exists(source + suffix):
            shutil.copy(source + suffix, target + suffix)
    tools = os.path.join(copy, 'bin')
    os.mkdir(tools)
    if module.get_bin_path('chkconfig'):
        for name, text in (('chkconfig', LISTING_CHKCONFIG), ('sed', '#!/bin/sh\n')):
            with open(os.path.join(tools, name), 'w') as tool:
                tool.write(text)
            os.chmod(tool.name, 0o700)
            if not os.access(tool.name, os.X_OK):
                raise EnvironmentError('programs cannot run in %s; set remote_tmp' % tools)
    return copy, {'PATH': tools, 'REAL_PATH': path}


def label(service):
    return '%s (%d)' % (service['name'], service['id']) if 'name' in service else 'id %d' % service['id']


def reason_of(final, err, rc):
    """Why a call failed, in the words of optimize_host."""
    if 'error' in final:
        return final['error']
    if 'not_handled' in final:
        return '; '.join('%s not handled: %s' % (label(each), each['reason'])
                         for each in final['not_handled'])
    messages = [line for line in err.splitlines() if 'optimize_host: ' in line]
    return '; '.join(messages) or 'optimize_host ended with status %d' % rc


def main():
    module = AnsibleModule(
        argument_spec={
            'name': {'type': 'list', 'elements': 'str', 'required': True, 'aliases': ['services']},
            'state': {'type': 'str', 'choices': sorted(STATES), 'required': True},
            'directory': {'type': 'path', 'default': '/var/lib/optimize_option'},
        },
        supports_check_mode=True)
    if not module.params['name']:
        module.exit_json(changed=False)
    operation, before, after = STATES[module.params['state']]
    directory = module.params['directory']
    program = module.get_bin_path('optimize_host', required=True)
    path = os.environ.get('PATH', '/usr/bin:/bin') + ':/usr/sbin:/sbin'  # some logins lack the last two
    environment = {'PATH': path}
    if module.check_mode:
        try:
            directory, environment = rehearsal(module, directory, path)
        except EnvironmentError as error:
            module.fail_json(msg='cannot prepare check mode: %s' % error)

    command = [program, '--json', '-C', directory, '--'] + operation + module.params['name']
    rc, out, err = module.run_command(command, environ_update=environment)
    replies = [json.loads(line) for line in out.split('\n')[:-1]]  # without one that was cut off
    handled = [{'id': reply['ids'][0], 'name': reply['names'][0]}
               for reply in replies if reply['reply'] == 'item']
    final = replies[-1] if replies and replies[-1]['reply'] != 'item' else {}
    result = {
        'changed': bool(handled),
        'handled': handled,
        'unchanged': final.get('unchanged', []),
        'not_handled': final.get('not_handled', []),
        'diff': {kind: ''.join('%s: %s\n' % (each['name'], state) for each in handled)
                 for kind, state in (('before', before), ('after', after))},
    }
    for line in err.splitlines():
        if ' completed the interrupted ' in line:
            module.warn(line)
    if rc != 0 or not final:
        if not module.check_mode:  # its commands were not run
            result['stderr'] = err
        reason = reason_of(final, err, rc).replace(directory, module.params['directory'])
        module.fail_json(msg=reason, **result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
