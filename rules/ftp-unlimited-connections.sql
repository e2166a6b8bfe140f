-- title: Connections are not limited
-- severity: low
-- category: reliability
-- why: Many transfers at once can take the machine from everything else that it does. Without a value, in the
--   metabase 0 by its schema, the service uses its internal default, 4294967295, which means unlimited and is
--   shown as -1.
-- fix: Limit the connections of the site to what it needs.
-- references: Microsoft, MaxConnections | https://learn.microsoft.com/es-es/previous-versions/windows/it-pro/windows-server-2003/cc728043(v=ws.10)
-- references: Microsoft, MaxConnections | https://msdn.microsoft.com/en-us/library/ms524491.aspx
-- references: NIST | SP 800-7 | http://ftp.sunet.se/mirror/archive/ftp.sunet.se/pub/security/csir/nist/nistpubs/800-7/node122.html
-- references: CWE | CWE-770
-- requires: ftp_site.maximum_connections
-- columns: maximum_connections integer
select object_id, maximum_connections in (-1, 0) as holds, maximum_connections
from ftp_site
