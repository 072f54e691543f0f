# Brings services into a state with optimize_host. Runs on Python 2.7 and 3.
"""Ansible module optimize_option.services.state."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
module: state
author: Optimize_Option maintainers (!UNKNOWN)
version_added: 2.0.0
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
      - If one of the names is not configured, nothing is changed and the task fails.
      - An empty list succeeds and changes nothing.
    type: list
    elements: str
    required: true
    aliases: [services]
  state:
    description:
      - C(optimized) switches off services that are on and not ignored.
      - C(restored) switches services that are optimized back on.
      - C(ignored) marks services that are on, so that they are left alone.
      - C(unignored) removes this mark, so that they are candidates again. C(listed) is another word for it.
    type: str
    choices: [optimized, restored, ignored, unignored, listed]
    required: true
  skip:
    description:
      - Reasons for which a service may stay as it is, for machines that differ.
      - The task succeeds if every service that could not be brought into the state has one of these
        reasons. Each service is still returned in C(not_handled).
      - C(not listed) means that the machine does not have the service, C(off) that it is off, but was not
        switched off by C(optimize_host), and C(not configured) that the configuration does not have the
        id. A name that it does not have always fails the task.
    type: list
    elements: str
    choices: [not listed, 'off', optimized, ignored, not configured]
    default: []
  directory:
    description:
      - The folder of the configuration, which holds C(config/system_operation/conf.xml).
    type: path
    default: /var/lib/optimize_option
  lock_timeout:
    description:
      - At most so many seconds to wait until another call on the same configuration ends. With C(0), the
        task does not wait.
      - After that the task fails, changes nothing, and names the process that holds the lock if that is
        known.
      - The keyword C(timeout) of a task has to be longer than this and the call together. Otherwise Ansible
        gives up a call that is still carried to its end. A call that still waits is ended where the
        machine notices that Ansible has given up.
    type: int
    default: 30
requirements:
  - C(optimize_host) 2.0 or later, C(chkconfig) and C(sed) on the machine
notes:
  - A service that cannot be brought into the state fails the task, after the other services were handled,
    unless the reason is in C(skip). A service that is off already is optimized.
  - A task that fails runs no handler, although C(changed) may be true. The examples show how handlers run
    nevertheless.
  - What else C(optimize_host) says becomes a warning, for example that a service is on again in some of its
    run levels only.
  - Run as root, for example with C(become).
seealso:
  - module: optimize_option.services.info
attributes:
  check_mode:
    description:
      - Makes the same call with C(--dry-run), which waits for a call in progress, lists the services and
        writes nothing.
      - Does not foresee commands that fail and missing rights to write.
    support: full
  diff_mode:
    description: Shows the state of each changed service before and after.
    support: full
'''

EXAMPLES = r'''
- name: Switch off what a server does not need
  optimize_option.services.state:
    name: [cups, rsync]
    state: optimized

- name: Switch off what a server does not need, where it is installed and not ignored
  optimize_option.services.state:
    name: [cups, rsync]
    state: optimized
    skip: [not listed, ignored]

- name: Switch it back on, except where somebody else switched it off
  optimize_option.services.state:
    name: [cups, rsync]
    state: restored
    skip: [not listed, ignored, 'off']

- name: Leave the time-of-day jobs alone
  optimize_option.services.state:
    name: atd
    state: ignored

# A task that fails runs no handler. So that they run for the services that were switched, let the task
# succeed, and fail after the handlers.
- name: Switch off services and report it, even if some of them fail
  optimize_option.services.state:
    name: [cups, rsync]
    state: optimized
  register: switching
  failed_when: false
  notify: Report what was switched off

- name: Run the handlers
  ansible.builtin.meta: flush_handlers

- name: Fail if a service has failed
  ansible.builtin.assert:
    that: switching.msg is not defined
    fail_msg: "{{ switching.msg | default('') }}"
'''

RETURN = r'''
changed:
  description:
    - Whether a service was changed, or would be in check mode.
    - Also true if a service is in C(not_handled) with C(command failed), C(still on), C(still off) or
      C(not verified), because its command may have changed something.
  returned: always
  type: bool
handled:
  description: The services that were changed, or would be in check mode.
  returned: if optimize_host was run or the list of names is empty
  type: list
  elements: dict
  sample: [{"id": 3, "name": "cups"}]
unchanged:
  description: The services that were in the state already.
  returned: if optimize_host was run or the list of names is empty
  type: list
  elements: dict
  sample: [{"id": 30, "name": "rsync"}]
not_handled:
  description:
    - The services that could not be brought into the state.
    - The reason is C(not listed), C(off), C(optimized), C(ignored), C(not configured), C(command failed),
      C(still on), C(still off), C(not verified) or C(state N). The message says it in a sentence.
  returned: if optimize_host was run or the list of names is empty
  type: list
  elements: dict
  sample: [{"id": 15, "name": "sshd", "reason": "ignored", "message": "it is marked as ignored"}]
msg:
  description: Why the task failed.
  returned: failure
  type: str
  sample: "sshd (15) not handled: it is marked as ignored"
stderr:
  description: Everything that optimize_host and its commands wrote to standard error.
  returned: failure, if optimize_host was run
  type: str
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.optimize_option.services.plugins.module_utils import optimize_host

# The operation that leads to a state, and what optimize_host calls the states before and after it.
STATES = {
    'optimized': (['optimize_service'], 'none', 'optimized'),
    'restored': (['restore_service'], 'optimized', 'none'),
    'ignored': (['ignore_service', 'on'], 'none', 'ignored'),
    'unignored': (['ignore_service', 'off'], 'ignored', 'none'),
    'listed': (['ignore_service', 'off'], 'ignored', 'none'),
}

# Reasons that `skip` can name: the machine has the service in another state, or lacks it. All other reasons are
# failures.
REASONS = ['not listed', 'off', 'optimized', 'ignored', 'not configured']

# Reasons after which the machine may have been changed all the same.
CHANGING = ['command failed', 'still on', 'still off', 'not verified']


def is_success(rc, final, skip):
    """Whether each service is in the state or may stay as it is."""
    reasons = set(each['reason'] for each in final.get('not_handled', []))
    return (not optimize_host.failed(final)
            and rc == (1 if reasons else 0) and reasons.issubset(skip))


def main():
    module = AnsibleModule(
        argument_spec=dict(
            optimize_host.OPTIONS,
            name={'type': 'list', 'elements': 'str', 'required': True, 'aliases': ['services']},
            state={'type': 'str', 'choices': sorted(STATES), 'required': True},
            skip={'type': 'list', 'elements': 'str', 'choices': REASONS, 'default': []},
        ),
        supports_check_mode=True)
    operation, before, after = STATES[module.params['state']]
    rc, err, items, final = 0, '', [], {'reply': 'final'}
    if '--all' in module.params['name']:  # which optimize_host would take for an option
        module.fail_json(msg="no service '--all' is configured")
    if module.params['name']:
        rc, err, calls = optimize_host.run(module, ['--'] + operation + module.params['name'])
        items, final = calls[0]
    handled = [{'id': item['ids'][0], 'name': item['names'][0]} for item in items]
    diff = {'before_header': 'services in ' + module.params['directory']}
    diff['after_header'] = diff['before_header']
    for kind, state in (('before', before), ('after', after)):
        diff[kind] = ''.join('%s: %s\n' % (each['name'], state) for each in handled)
    result = {
        'changed': bool(handled) or any(each['reason'] in CHANGING for each in final.get('not_handled', [])),
        'handled': handled,
        'unchanged': final.get('unchanged', []),
        'not_handled': final.get('not_handled', []),
        'diff': diff,
        'warnings': optimize_host.messages(err, [final]),
    }
    if is_success(rc, final, module.params['skip']):
        module.exit_json(**result)
    module.fail_json(msg=optimize_host.reason(rc, [final], result['warnings'], module.params['skip']), stderr=err, **result)


if __name__ == '__main__':
    main()
