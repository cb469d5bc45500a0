// SPDX-License-Identifier: GPL-2.0
/*
 * Stands in for the device's own kernel module, in tests and for trying things out.
 *
 * Netlink protocol 30: a bare header of type 8 registers its sender as the recipient of events.
 *
 * /proc/veltrac/version   a write appends a record, a read returns all of them as written
 * /proc/veltrac/event     writing "CODE" sends that event to the registered sender; a read returns its port, 0 for
 *                         none, and how many messages were not registrations
 */
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/netlink.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>
#include <linux/uaccess.h>
#include <net/net_namespace.h>
#include <net/sock.h>

#define VELTRAC_PROTOCOL 30
#define VELTRAC_REGISTER 8
#define RECORD_BYTES_MAX 4096

/* Sent with each event; the receiver does not look at it. */
static const char payload[64] = "veltrac";

static DEFINE_MUTEX(lock); /* of all that follows */
static struct sock* channel;
static char records[RECORD_BYTES_MAX];
static size_t record_bytes;
static u32 listener;
static u32 refused;

static void receive(struct sk_buff* message) {
    const struct nlmsghdr* header = nlmsg_hdr(message);

    mutex_lock(&lock);
    if (message->len == NLMSG_HDRLEN && header->nlmsg_len == NLMSG_HDRLEN && header->nlmsg_type == VELTRAC_REGISTER)
        listener = NETLINK_CB(message).portid;
    else
        ++refused;
    mutex_unlock(&lock);
}

static int send_event(u16 code) {
    struct nlmsghdr* header;
    struct sk_buff* message;

    if (!listener) return -ENOTCONN;
    message = nlmsg_new(sizeof(payload), GFP_KERNEL);
    if (!message) return -ENOMEM;
    header = nlmsg_put(message, 0, 0, code, sizeof(payload), 0);
    if (!header) {
        kfree_skb(message);
        return -EMSGSIZE;
    }
    memcpy(nlmsg_data(header), payload, sizeof(payload));
    return nlmsg_unicast(channel, message, listener);
}

static int version_show(struct seq_file* file, void* unused) {
    mutex_lock(&lock);
    seq_write(file, records, record_bytes);
    mutex_unlock(&lock);
    return 0;
}

static ssize_t version_write(struct file* file, const char __user* from, size_t count, loff_t* position) {
    ssize_t result = count;

    mutex_lock(&lock);
    if (count > sizeof(records) - record_bytes)
        result = -ENOSPC;
    else if (copy_from_user(records + record_bytes, from, count))
        result = -EFAULT;
    else
        record_bytes += count;
    mutex_unlock(&lock);
    return result;
}

static int version_open(struct inode* inode, struct file* file) {
    return single_open(file, version_show, NULL);
}

static const struct proc_ops version_ops = {
    .proc_open = version_open,
    .proc_read = seq_read,
    .proc_lseek = seq_lseek,
    .proc_write = version_write,
    .proc_release = single_release,
};

static int event_show(struct seq_file* file, void* unused) {
    mutex_lock(&lock);
    seq_printf(file, "%u %u\n", listener, refused);
    mutex_unlock(&lock);
    return 0;
}

static ssize_t event_write(struct file* file, const char __user* from, size_t count, loff_t* position) {
    u16 code;
    int error = kstrtou16_from_user(from, count, 10, &code);

    if (error) return error;
    mutex_lock(&lock);
    error = send_event(code);
    mutex_unlock(&lock);
    return error < 0 ? error : count;
}

static int event_open(struct inode* inode, struct file* file) {
    return single_open(file, event_show, NULL);
}

static const struct proc_ops event_ops = {
    .proc_open = event_open,
    .proc_read = seq_read,
    .proc_lseek = seq_lseek,
    .proc_write = event_write,
    .proc_release = single_release,
};

static int __init veltrac_init(void) {
    struct netlink_kernel_cfg config = {.input = receive};
    struct proc_dir_entry* directory;

    channel = netlink_kernel_create(&init_net, VELTRAC_PROTOCOL, &config);
    if (!channel) return -ENOMEM;
    directory = proc_mkdir("veltrac", NULL);
    if (directory && proc_create("version", 0644, directory, &version_ops) &&
        proc_create("event", 0600, directory, &event_ops))
        return 0;
    proc_remove(directory);
    netlink_kernel_release(channel);
    return -ENOMEM;
}

/* Never unloaded: the device goes with it. */
module_init(veltrac_init);
MODULE_DESCRIPTION("stand-in for the device's event source");
MODULE_LICENSE("GPL");
