-- title: Two sites have the same binding
-- severity: medium
-- category: reliability
-- why: Only one of them can be started at a time.
-- fix: Give each site an address or a port of its own, or remove one.
-- requires: ftp_site.ip_address ftp_site.tcp_port
-- columns: ip_address text, tcp_port integer, sites integer
select s.object_id, case when s.tcp_port is null then null else b.sites > 1 end as holds,
       s.ip_address, s.tcp_port, b.sites
from ftp_site s
left join (select server, ip_address, tcp_port, count(*) as sites from ftp_site group by server, ip_address, tcp_port) b
  on b.server = s.server and b.ip_address = s.ip_address and b.tcp_port = s.tcp_port
