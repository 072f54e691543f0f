# Reports the services of a machine and their states with optimize_host. Runs on Python 2.7 and 3.
"""Ansible module optimize_option.services.info."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
module: info
author: Optimize_Option maintainers (!UNKNOWN)
version_added: 2.0.0
short_description: Report the services of optimize_host and their states
description:
  - Lists the services that are configured for C(optimize_host), and what is switched off since when.
  - No service is switched, and nothing is ever reported as changed.
  - The listing brings the configuration and the record in line with the machine, as each listing of
    C(optimize_host) does, but not in check mode.
options:
  directory:
    description:
      - The folder of the configuration, which holds C(config/system_operation/conf.xml).
    type: path
    default: /var/lib/optimize_option
  lock_timeout:
    description:
      - At most so many seconds to wait until another call on the same configuration ends. With C(0), the
        task does not wait.
      - The keyword C(timeout) of a task has to be longer than this and the listing together.
    type: int
    default: 30
requirements:
  - C(optimize_host) 2.0 or later and C(chkconfig) on the machine
notes:
  - What C(optimize_host) says becomes a warning, for example that a service is on again in some of its run
    levels only.
  - Run as root, for example with C(become).
seealso:
  - module: optimize_option.services.state
attributes:
  check_mode:
    description:
      - Reads what is there and writes nothing. The keyword C(check_mode) of a task has it read in this way in
        each run.
      - The services are those that a listing would show. What is switched off is the record as it is, which
        may not know yet what has been changed without C(optimize_host).
    support: full
'''

EXAMPLES = r'''
- name: Read the services
  optimize_option.services.info:
  register: found

- name: Show what is switched off since when
  ansible.builtin.debug:
    msg: "{{ item.name }} is off since {{ item.since }}"
  loop: "{{ found.switched }}"

- name: Show what could be switched off
  ansible.builtin.debug:
    msg: "{{ found.services | selectattr('state', 'equalto', 'none') | map(attribute='name') | join(', ') }}"

- name: Switch everything back on that is switched off on this machine
  optimize_option.services.state:
    name: "{{ found.switched | map(attribute='name') }}"
    state: restored
'''

RETURN = r'''
services:
  description:
    - The services that are on or switched off by C(optimize_host).
    - The state is C(none), C(optimized) or C(ignored). It can be C(state N), with the number in the configuration,
      for a service of xinetd that C(chkconfig) lists as neither on nor off.
    - The level holds the run levels in which the service is on or comes back on. It is C(on) for a service
      of xinetd.
    - A service has the member C(listed) with the value false if C(chkconfig) does not list it, but the
      record says that it is switched off.
  returned: if optimize_host was run
  type: list
  elements: dict
  sample: [{"id": 3, "name": "cups", "state": "optimized", "level": "2345", "description": "Printing"}]
switched:
  description:
    - What is switched off, and since when, in UTC.
    - The state is C(off), C(partly) if the service is on again in some of its run levels, or
      C(switching-off) or C(switching-on) if a call was interrupted.
  returned: if optimize_host was run
  type: list
  elements: dict
  sample: [{"name": "cups", "state": "off", "level": "2345", "since": "2026-11-25T10:17:10Z"}]
score:
  description:
    - The score, a number that clients keep in the configuration.
    - It is null if it is missing there; then a warning says so.
  returned: success
  type: int
  sample: 85
count:
  description:
    - The count, another number that clients keep there.
    - It is null if it is missing there; then a warning says so.
  returned: success
  type: int
  sample: 3
msg:
  description: Why the task failed.
  returned: failure
  type: str
stderr:
  description: Everything that optimize_host and its commands wrote to standard error.
  returned: failure, if optimize_host was run
  type: str
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.optimize_option.services.plugins.module_utils import optimize_host

OPERATIONS = ['ls_service', 'switched', 'get_optimize_sorce', 'get_optimize_num']
STATES = ['none', 'optimized', 'ignored']  # by their numbers


def service_of(item):
    """A service of a listing, with the words of this module for its members and its state."""
    service = item['services'][0]
    number = service.pop('op')
    service['state'] = STATES[number] if number in (0, 1, 2) else 'state %d' % number
    service['description'] = service.pop('desc')
    return service


def main():
    module = AnsibleModule(argument_spec=optimize_host.OPTIONS, supports_check_mode=True)
    optimize_host.give_input('\n'.join(OPERATIONS))
    rc, err, calls = optimize_host.run(module, ['-'])
    calls = calls[:-1] + [([], {})] * len(OPERATIONS)
    (services, dummy), (record, dummy), (dummy, score), (dummy, count) = calls[:len(OPERATIONS)]
    finals = [final for dummy, final in calls[:len(OPERATIONS)]]
    warnings = optimize_host.messages(err, finals)
    warnings += [final['error'] for final in finals[2:] if 'error' in final]  # an element may be missing
    result = {
        'services': [service_of(item) for item in services],
        'switched': [{key: item[key] for key in ('name', 'state', 'level', 'since')}
                     for item in record if item['state'] != 'ignored'],
        'score': score.get('value'),
        'count': count.get('value'),
        'warnings': warnings,
    }
    if any(optimize_host.failed(final) for final in finals[:2]) or not all(finals):
        module.fail_json(msg=optimize_host.reason(rc, finals, warnings), stderr=err, **result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
