-- title: Logging is off
-- severity: medium
-- category: security
-- why: What was done on the site cannot be found out afterwards.
-- fix: Enable logging of the site, and of visits to its home directory.
-- requires: ftp_site.logging ftp_site.logs_visits
-- columns: logging boolean, logs_visits boolean, path text
select object_id, not logging or not logs_visits as holds, logging, logs_visits, path
from ftp_site
