// Where the program and its configuration are. The build replaces both paths by those of the installation.
export const program = "/usr/bin/optimize_host";
export const folder = "/var/lib/optimize_option";
export const configuration = folder + "/config/system_operation/conf.xml";
export const record = configuration + ".record";
