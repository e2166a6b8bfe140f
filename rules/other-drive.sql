-- title: Content on another drive than C:
-- severity: info
-- category: migration
-- why: The new machine needs a drive of that letter, or another path.
-- fix: Give the new machine the drive, or map its paths when the settings are carried over.
-- requires: ftp_site.path ftp_directory.path application.path
-- columns: path text identifying
select object_id, substr(path, 2, 1) = ':' and substr(path, 1, 1) not in ('c', 'C')
         and (substr(path, 1, 1) between 'a' and 'z' or substr(path, 1, 1) between 'A' and 'Z') as holds, path
from (select object_id, path from ftp_site
      union all select object_id, path from ftp_directory
      union all select object_id, path from application) content
