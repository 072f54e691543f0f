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
      - C(optimized) switches off services that are on and not ignored.
      - C(restored) switches services that are optimized back on.
      - C(ignored) marks services that are on, so that they are left alone.
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
  - C(optimize_host) 2.0 or later, C(chkconfig) and C(sed) on the machine
notes:
  - A service that cannot be brought into the state fails the task, after the other services were handled.
  - A service that is not on the machine is C(not listed) and fails the task, too. See the example with
    C(failed_when). One that somebody else switched off is optimized already, but cannot be restored.
  - What else C(optimize_host) says becomes a warning, for example that a service is on again in some of its
    run levels only.
  - Run as root, for example with C(become).
attributes:
  check_mode:
    description:
      - Makes the same call with C(--dry-run), which lists the services and writes nothing.
      - Does not foresee commands that fail and missing rights to write.
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
  failed_when: printing is failed and 'not listed' not in printing.not_handled | default([]) | map(attribute='reason')

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
  description:
    - The services that could not be brought into the state.
    - The reason is C(not listed), C(off), C(optimized), C(ignored), C(not configured), C(command failed),
      C(still on), C(still off), C(not verified) or C(state N). The message says it in a sentence.
  returned: if optimize_host was run
  type: list
  elements: dict
  sample: [{"id": 15, "name": "sshd", "reason": "ignored", "message": "it is marked as ignored"}]
'''

import json
import os

from ansible.module_utils.basic import AnsibleModule

# The operation that leads to a state, and what optimize_host calls the states before and after it.
STATES = {
    'optimized': (['optimize_service'], 'none', 'optimized'),
    'restored': (['restore_service'], 'optimized', 'none'),
    'ignored': (['ignore_service', 'on'], 'none', 'ignored'),
    'listed': (['ignore_service', 'off'], 'ignored', 'none'),
}


def label(service):
    return '%s (%d)' % (service['name'], service['id']) if 'name' in service else 'id %d' % service['id']


def other_messages(final, err):
    """The lines of optimize_host that are neither about a requested service nor the error."""
    known = [': %s ' % label(each) for kind in ('unchanged', 'not_handled') for each in final.get(kind, [])]
    return [line for line in err.splitlines()
            if line.startswith('optimize_host: ') and not any(each in line for each in known)
            and not ('error' in final and line.endswith(final['error']))]


def reason_of(final, messages, rc):
    """Why a call failed, in the words of optimize_host."""
    if 'error' in final:
        return final['error']
    if 'not_handled' in final:
        return '; '.join('%s not handled: %s' % (label(each), each['message'])
                         for each in final['not_handled'])
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
    program = module.get_bin_path('optimize_host', required=True)
    options = ['--json', '-C', module.params['directory']] + ['--dry-run'] * module.check_mode
    path = os.environ.get('PATH', '/usr/bin:/bin') + ':/usr/sbin:/sbin'  # some logins lack the last two
    rc, out, err = module.run_command([program] + options + ['--'] + operation + module.params['name'],
                                      environ_update={'PATH': path})
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
    messages = other_messages(final, err)
    if rc != 0 or not final:
        module.fail_json(msg=reason_of(final, messages, rc), stderr=err, warnings=messages, **result)
    module.exit_json(warnings=messages, **result)


if __name__ == '__main__':
    main()
