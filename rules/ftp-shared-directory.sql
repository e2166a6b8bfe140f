-- title: Several sites share a directory
-- severity: low
-- category: security
-- why: What one site allows, the restrictions of the other do not prevent.
-- fix: Give each site a directory of its own, or the same restrictions.
-- requires: ftp_site.path ftp_directory.path
-- columns: path text identifying, sites integer
with paths as (
  select object_id, server, identifier as site, path from ftp_site
  union all
  select object_id, server, site_identifier, path from ftp_directory)
select p.object_id,
       case when p.path is null then null else s.sites > 1 end as holds,
       p.path, s.sites
from paths p
left join (select server, rtrim(fold(path), '\') as path, count(distinct site) as sites
           from paths where path <> '' group by server, rtrim(fold(path), '\')) s
  on s.server = p.server and s.path = rtrim(fold(p.path), '\')
where p.path is null or s.sites > 1
